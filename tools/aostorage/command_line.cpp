#include "command_line.h"

#include <string>

#include <CLI/CLI.hpp>

#include "shown.h"
#include "verb_parser.h"

#ifndef AOSTORAGE_VERSION
#define AOSTORAGE_VERSION "development version"
#endif

namespace aotool {
namespace {

constexpr const char* kDescription =
    "Keeps a tree of named byte streams in one storage file.\n"
    "aostorage VERB --help tells the options of a verb, with examples.";

constexpr const char* kFooter =
    "PATH names a stream from the root down, its names separated by slashes. A name that holds a\n"
    "slash itself is found as well. FILE is a file, or - for standard input or output.\n"
    "\n"
    "Exit codes: 0 done, 1 the answer is no (not found, differences, findings), 2 wrong usage or\n"
    "any other failure, 3 damaged file, 4 not a storage file, 5 input/output error or disk full.";

std::string FailureLine(const CLI::App*, const CLI::Error& error) {
  return "aostorage: " + Shown(error.what()) + " (--help tells more)\n";
}

void AddVerbs(Verbs& verbs) {
  AddStreamVerbs(verbs);
  AddListVerbs(verbs);
  AddFolderVerbs(verbs);
  AddRebuildVerbs(verbs);
  AddDirectoryVerbs(verbs);
  AddEntryVerbs(verbs);
  AddCheckVerbs(verbs);
  AddPictureVerbs(verbs);
  AddTextVerbs(verbs);
  AddRecoverVerbs(verbs);
}

}  // namespace

ExitCode ParseCommandLine(int argc, char** argv, Action& chosen) {
  CLI::App app(kDescription, "aostorage");
  app.set_version_flag("--version", std::string("aostorage ") + AOSTORAGE_VERSION);
  app.footer(kFooter);
  app.failure_message(FailureLine);
  app.require_subcommand(1);

  Verbs named(app, chosen, argc > 1 ? argv[1] : "");
  AddVerbs(named);
  Verbs all(app, chosen, "");
  if (app.get_subcommands({}).empty()) AddVerbs(all);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (app.exit(error) != 0) return kFailure;
    return FlushPrinted().Ok() ? kDone : kInputOutput;
  }
  return kDone;
}

}  // namespace aotool
