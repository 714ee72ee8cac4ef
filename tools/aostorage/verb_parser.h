// How the verbs get onto the command line. Each group of verbs has a file *_verbs.cpp with one
// function that adds them; command_line.cpp calls them all. A new verb takes:
//   - an options struct and a function run(const Options&, Report&), in verbs.h or a header of its
//     own
//   - its words in a *_verbs.cpp
//   - a section in docs/aostorage.1, a line in tools/completion/aostorage.bash, and when it reads,
//   a
//     form in docs/aostorage-json.schema.json: tests compare them with --help
#ifndef AOSTORAGE_TOOLS_VERB_PARSER_H_
#define AOSTORAGE_TOOLS_VERB_PARSER_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "command_line.h"
#include "report.h"
#include "verbs.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace aotool {

struct VerbText {
  const char* name;
  const char* description;
  // Command lines that begin with "aostorage", each ending in a line feed.
  const char* examples;
  // What else there is to know, above the examples; lines, the last one without a line feed.
  const char* notes = "";
};

enum class Need { kRequired, kOptional };

// What a verb takes. The parser takes long to compile, so only verb_parser.cpp and command_line.cpp
// include it. Whatever is bound here must live as long as the options of the verb: bind their
// members.
class Verb {
 public:
  // Null: a verb that is not looked at in this run; nothing is added to it.
  explicit Verb(CLI::App* verb) : app(verb) {}

  // An argument without an option in front; `name` is in capitals.
  Verb& Operand(const char* name, std::string& value, const std::string& text,
                Need need = Need::kRequired);
  // The PATH operand.
  Verb& Path(CommonOptions& options, const std::string& text, Need need = Need::kRequired);

  // `names` as "-l" or "-p,--parents".
  Verb& Flag(const char* names, bool& value, const std::string& text);
  Verb& Flag(const char* names, const std::function<void()>& take, const std::string& text);
  // An option with a value, called `valueName` in the help.
  Verb& Option(const char* names, std::string& value, const char* valueName,
               const std::string& text);
  Verb& Option(const char* names, const std::function<void(const std::string&)>& take,
               const char* valueName, const std::string& text);
  Verb& Number(const char* names, std::uint32_t& value, std::uint32_t smallest,
               std::uint32_t largest, const std::string& text);
  // One of a few words; what `value` holds is the default.
  Verb& Choice(const char* names, std::string& value, const std::vector<std::string>& words,
               const std::string& text);

  // --json, of a verb that reads.
  Verb& Json(CommonOptions& options);
  // --color; Add has called it.
  Verb& Color(CommonOptions& options);
  // --reserve, of a verb that writes streams.
  Verb& Reserve(CommonOptions& options);

  // `name` is refused without `other`, or together with it. Both were added before.
  Verb& Needs(const char* name, const char* other);
  Verb& Excludes(const char* name, const char* other);

  // Exactly one of what is added to the result has to be given.
  Verb OneOf(const char* title);

 private:
  CLI::App* app;
};

// Adds verbs to the command line; the one that it names sets the action that is chosen.
class Verbs {
 public:
  // With `onlyVerb` all others are passed over: most of the time it takes to start goes into them.
  Verbs(CLI::App& parser, Action& toChoose, std::string onlyVerb)
      : app(parser), chosen(toChoose), only(std::move(onlyVerb)) {}

  // A verb with STORE as its first operand, and --color.
  template <typename Options>
  Verb Add(const VerbText& text, const std::shared_ptr<Options>& options,
           void (*run)(const Options&, Report&)) {
    return AddWithoutStore(text, options, run).Operand("STORE", options->store, "the storage file");
  }

  template <typename Options>
  Verb AddWithoutStore(const VerbText& text, const std::shared_ptr<Options>& options,
                       void (*run)(const Options&, Report&)) {
    Verb verb = AddVerb(text, [options, run] {
      Report report(options->store);
      run(*options, report);
      return Finish(report);
    });
    return verb.Color(*options);
  }

 private:
  static ExitCode Finish(Report& report);
  Verb AddVerb(const VerbText& text, const Action& action);

  CLI::App& app;
  Action& chosen;
  const std::string only;
};

// The groups, in the order in which --help lists them.
void AddStreamVerbs(Verbs& verbs);     // create, put, get, cat, rm
void AddListVerbs(Verbs& verbs);       // ls, tree, info
void AddFolderVerbs(Verbs& verbs);     // mkdir, mv, cp
void AddRebuildVerbs(Verbs& verbs);    // compact, upgrade
void AddRecoverVerbs(Verbs& verbs);    // recover
void AddDirectoryVerbs(Verbs& verbs);  // import, export
void AddEntryVerbs(Verbs& verbs);      // set, get-entry, log
void AddCheckVerbs(Verbs& verbs);      // check
void AddTextVerbs(Verbs& verbs);       // dump, load, diff, hexdump, blocks
void AddPictureVerbs(Verbs& verbs);    // stat, map

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_VERB_PARSER_H_
