// set, get-entry, log on the command line.

#include "verb_parser.h"

namespace aotool {
namespace {

void AddSet(Verbs& verbs) {
  auto options = std::make_shared<SetOptions>();
  Verb types = verbs
                   .Add({"set", "Store a small value, in the place of an old one",
                         "aostorage set notes.aos settings/volume --int 7\n"
                         "aostorage set notes.aos settings/window --rect 0,0,640,480\n"},
                        options, &SetEntry)
                   .Path(*options, "the entry; its folder must be there")
                   .Reserve(*options)
                   .OneOf("Type");
  for (const ValueForm& form : ValueForms()) {
    const auto take = [options, type = form.type](const std::string& text) {
      options->given[type] = text;
    };
    types.Option(form.option, take, "VALUE", form.form);
  }
}

void AddGetEntry(Verbs& verbs) {
  auto options = std::make_shared<GetEntryOptions>();
  Verb verb = verbs.Add({"get-entry", "Print a small value",
                         "aostorage get-entry notes.aos settings/volume --int --default 5\n"
                         "aostorage get-entry --json notes.aos settings/window --rect\n",
                         "With --raw the bytes come as they are: it takes no --json."},
                        options, &PrintEntry);
  verb.Path(*options, "the entry")
      .Option(
          "--default", [options](const std::string& text) { options->defaultValue = text; },
          "VALUE",
          "printed when there is no such entry, a folder is in the way or it holds too little")
      .Json(*options);
  Verb types = verb.OneOf("Type");
  for (const ValueForm& form : ValueForms()) {
    types.Flag(
        form.option, [options, type = form.type] { options->type = type; }, form.form);
  }
  verb.Excludes("--raw", "--json");
}

void AddLog(Verbs& verbs) {
  auto options = std::make_shared<LogOptions>();
  verbs
      .Add({"log", "Append a value to a log entry, or list the entry",
            "date | aostorage log notes.aos visits\n"
            "aostorage log --list notes.aos visits\n"},
           options, &Log)
      .Path(*options, "the entry; its folder must be there")
      .Operand("FILE", options->file, "the value; default: standard input", Need::kOptional)
      .Flag("--list", options->list,
            "tell where the newest value and the older ones lie; where each of the older ones "
            "begins is not stored")
      .Excludes("--list", "FILE")
      .Json(*options)
      .Needs("--json", "--list")
      .Reserve(*options);
}

}  // namespace

void AddEntryVerbs(Verbs& verbs) {
  AddSet(verbs);
  AddGetEntry(verbs);
  AddLog(verbs);
}

}  // namespace aotool
