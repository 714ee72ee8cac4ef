// The only file that includes the parser: it takes long to compile.

#include "command_line.h"

#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "entry_values.h"
#include "verbs.h"

#ifndef AOSTORAGE_VERSION
#define AOSTORAGE_VERSION "development version"
#endif

namespace aotool {
namespace {

constexpr const char* kFooter =
    "PATH names a stream from the root down, its names separated by slashes. A name that holds a\n"
    "slash itself is found as well. FILE is a file, or - for standard input or output.\n"
    "\n"
    "Exit codes: 0 done, 1 not found, 2 wrong usage or any other failure, 3 damaged file,\n"
    "4 not a storage file, 5 input/output error or disk full.";

constexpr const char* kCopyFooter =
    "STORE ends at the first colon that has a file on its left, or else at the first colon.\n"
    "Nothing that is there is overwritten unasked. The copy is read back before it counts as done.";

constexpr const char* kRebuildFooter =
    "The new store is made in a file beside the old one, with _tmp at the end of its name, read "
    "back\n"
    "and put in place in one step. All durations become 0, and streams of reserved slots ordinary\n"
    "ones. A store that cannot be carried whole stays as it is.";

std::string FailureLine(const CLI::App*, const CLI::Error& error) {
  return "aostorage: " + Shown(error.what()) + " (--help tells more)\n";
}

void AddPath(CLI::App* verb, CommonOptions& options, const std::string& text, bool required) {
  verb->add_option("PATH", options.path, text)->required(required);
}

void AddReserve(CLI::App* verb, CommonOptions& options) {
  verb->add_option(
          "--reserve", options.reserve,
          "bytes kept free behind the data of each new block, so that it can grow in place")
      ->check(CLI::Range(0U, 0x40000000U));
}

// The verbs add themselves to `app`; the one that the command line names sets `chosen`.
class Verbs {
 public:
  Verbs(CLI::App& parser, Action& toChoose) : app(parser), chosen(toChoose) {}

  void AddAll() {
    AddCreate();
    AddPut();
    AddGet();
    AddRm();
    AddListing();
    AddFolders();
    AddCopy();
    AddRebuilds();
    AddImport();
    AddExport();
    AddSet();
    AddGetEntry();
    AddLog();
  }

 private:
  template <typename Options>
  CLI::App* Add(const char* name, const char* description, const std::shared_ptr<Options>& options,
                void (*run)(const Options&, Report&)) {
    CLI::App* verb = AddWithoutStore(name, description, options, run);
    verb->add_option("STORE", options->store, "the storage file")->required();
    return verb;
  }

  template <typename Options>
  CLI::App* AddWithoutStore(const char* name, const char* description,
                            const std::shared_ptr<Options>& options,
                            void (*run)(const Options&, Report&)) {
    CLI::App* verb = app.add_subcommand(name, description);
    verb->callback([this, options, run] {
      chosen = [options, run] {
        Report report(options->store);
        run(*options, report);
        if (Result result = FlushPrinted(); !result.Ok()) report.Fail("", result);
        return report.Code();
      };
    });
    return verb;
  }

  void AddCreate() {
    auto options = std::make_shared<CreateOptions>();
    CLI::App* verb = Add("create", "Make an empty store", options, &Create);
    verb->add_flag("--force", options->force, "empty a store that is there already");
  }

  void AddPut() {
    auto options = std::make_shared<CopyOptions>();
    CLI::App* verb =
        Add("put", "Store a file as a stream, in the place of an old one", options, &Put);
    AddPath(verb, *options, "the stream; its folder must be there", true);
    verb->add_option("FILE", options->file, "what to store; default: standard input");
    AddReserve(verb, *options);
  }

  void AddGet() {
    auto get = std::make_shared<CopyOptions>();
    CLI::App* verb = Add("get", "Write a stream to a file, in the place of an old one", get, &Get);
    AddPath(verb, *get, "the stream", true);
    verb->add_option("FILE", get->file, "where to write it; default: standard output");

    auto cat = std::make_shared<CopyOptions>();
    verb = Add("cat", "Write a stream to standard output", cat, &Get);
    AddPath(verb, *cat, "the stream", true);
  }

  void AddRm() {
    auto options = std::make_shared<CommonOptions>();
    CLI::App* verb = Add("rm", "Remove a stream, or a folder with all it holds", options, &Rm);
    AddPath(verb, *options, "the stream or folder", true);
  }

  void AddListing() {
    auto list = std::make_shared<ListOptions>();
    CLI::App* verb = Add("ls", "List the root streams or a folder", list, &List);
    AddPath(verb, *list, "the folder, or a single stream; default: the root", false);
    verb->add_flag("-l", list->details, "also kind (d: a folder) and length in bytes");
    verb->add_option("--sort", list->order,
                     "name; slot: the order in the file; none: as the store has them at hand")
        ->check(CLI::IsMember({"name", "none", "slot"}))
        ->capture_default_str();
    verb->add_flag(
        "--durations", list->durations,
        "also the duration in seconds; at the root estimated where a stream has none and "
        "its name is a time in eight hexadecimal digits");

    auto tree = std::make_shared<CommonOptions>();
    verb = Add("tree", "Show everything below the root or a folder", tree, &Tree);
    AddPath(verb, *tree, "the folder; default: the root", false);

    Add("info", "Tell what a store holds", std::make_shared<CommonOptions>(), &Info);
  }

  void AddFolders() {
    auto mkdir = std::make_shared<MkdirOptions>();
    CLI::App* verb = Add("mkdir", "Make a folder", mkdir, &Mkdir);
    AddPath(verb, *mkdir, "the new folder", true);
    verb->add_flag("-p,--parents", mkdir->parents,
                   "make the folders above it too; no error if it is there already");

    auto move = std::make_shared<MoveOptions>();
    verb = Add("mv", "Rename or move a stream or a folder, never onto another one", move, &Move);
    AddPath(verb, *move, "the stream or folder", true);
    verb->add_option(
            "TO", move->to,
            "a new name in the same folder; or, with a slash in it, a path from the root, "
            "/NAME for the root itself; or, with a slash at its end, the folder to move into")
        ->required();
    AddReserve(verb, *move);
  }

  void AddCopy() {
    auto options = std::make_shared<CopyTreeOptions>();
    CLI::App* verb = AddWithoutStore(
        "cp", "Copy a stream or a folder with all it holds, within a store or to another one",
        options, &CopyTree);
    verb->add_option("FROM", options->from, "STORE:PATH of the stream or folder")->required();
    verb->add_option("TO", options->to,
                     "STORE:PATH of the copy; or, with a slash at its end, of the folder to copy "
                     "into; STORE: for the root")
        ->required();
    verb->add_flag("--force", options->force, "replace a plain stream that is there already");
    verb->add_flag("--merge", options->merge,
                   "copy into a folder that is there already: what has the same name in it is "
                   "replaced, everything else in it stays");
    AddReserve(verb, *options);
    verb->footer(kCopyFooter);
  }

  void AddRebuilds() {
    auto compact = std::make_shared<RebuildOptions>();
    CLI::App* verb =
        Add("compact", "Rebuild a store without gaps and removed streams", compact, &Compact);
    // Not an empty string when missing: an empty FILE must not mean the store itself.
    CLI::Option* output =
        verb->add_option_function<std::string>(
                "--output", [compact](const std::string& file) { compact->output = file; },
                "the file for the new store; the old one stays. Default: in its place")
            ->type_name("FILE");
    verb->add_flag("--force", compact->force, "replace a file that is there already")
        ->needs(output);
    AddDropHidden(verb, *compact);

    auto upgrade = std::make_shared<RebuildOptions>();
    verb =
        Add("upgrade", "Rebuild a store of the older form in the current one", upgrade, &Upgrade);
    AddDropHidden(verb, *upgrade);
  }

  void AddDropHidden(CLI::App* verb, RebuildOptions& options) {
    verb->add_flag("--drop-hidden", options.dropHidden,
                   "leave root streams behind that a later one of the same name hides");
    verb->footer(kRebuildFooter);
  }

  void AddImport() {
    auto options = std::make_shared<ImportOptions>();
    CLI::App* verb =
        Add("import", "Store a directory tree: files as streams, directories as folders", options,
            &ImportTree);
    verb->add_option("DIR", options->directory, "the directory; what it holds is stored")
        ->required();
    verb->add_option("--into", options->into,
                     "the folder that takes it, made when missing; default: the root");
    verb->add_flag("--cut", options->cut,
                   "cut names that are too long, instead of leaving them out");
    verb->add_flag("--force", options->force, "replace streams that are there already");
    AddReserve(verb, *options);
  }

  void AddExport() {
    auto options = std::make_shared<ExportOptions>();
    CLI::App* verb =
        Add("export", "Write streams and folders to a directory", options, &ExportTree);
    verb->add_option("DIR", options->directory, "the directory, made when missing")->required();
    AddPath(verb, *options, "the folder or stream to write; default: everything", false);
    verb->add_flag("--force", options->force, "replace files that are there already");
  }

  void AddSet() {
    auto options = std::make_shared<SetOptions>();
    CLI::App* verb =
        Add("set", "Store a small value, in the place of an old one", options, &SetEntry);
    AddPath(verb, *options, "the entry; its folder must be there", true);
    CLI::Option_group* types = verb->add_option_group("Type");
    for (const ValueForm& form : ValueForms()) {
      const auto take = [options, type = form.type](const std::string& text) {
        options->given[type] = text;
      };
      types->add_option_function<std::string>(form.option, take, form.form);
    }
    types->require_option(1);
    AddReserve(verb, *options);
  }

  void AddGetEntry() {
    auto options = std::make_shared<GetEntryOptions>();
    CLI::App* verb = Add("get-entry", "Print a small value", options, &PrintEntry);
    AddPath(verb, *options, "the entry", true);
    CLI::Option_group* types = verb->add_option_group("Type");
    for (const ValueForm& form : ValueForms()) {
      const auto take = [options, type = form.type] { options->type = type; };
      types->add_flag_callback(form.option, take, form.form);
    }
    types->require_option(1);
    verb->add_option_function<std::string>(
        "--default", [options](const std::string& text) { options->defaultValue = text; },
        "printed when there is no such entry, a folder is in the way or it holds too little");
  }

  void AddLog() {
    auto options = std::make_shared<LogOptions>();
    CLI::App* verb = Add("log", "Append a value to a log entry, or list the entry", options, &Log);
    AddPath(verb, *options, "the entry; its folder must be there", true);
    CLI::Option* file =
        verb->add_option("FILE", options->file, "the value; default: standard input");
    verb->add_flag(
            "--list", options->list,
            "tell where the newest value and the older ones lie; where each of the older ones "
            "begins is not stored")
        ->excludes(file);
    AddReserve(verb, *options);
  }

  CLI::App& app;
  Action& chosen;
};

}  // namespace

ExitCode ParseCommandLine(int argc, char** argv, Action& chosen) {
  CLI::App app("Keeps a tree of named byte streams in one storage file.", "aostorage");
  app.set_version_flag("--version", std::string("aostorage ") + AOSTORAGE_VERSION);
  app.footer(kFooter);
  app.failure_message(FailureLine);
  app.require_subcommand(1);
  Verbs verbs(app, chosen);
  verbs.AddAll();
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (app.exit(error) != 0) return kFailure;
    return FlushPrinted().Ok() ? kDone : kInputOutput;
  }
  return kDone;
}

}  // namespace aotool
