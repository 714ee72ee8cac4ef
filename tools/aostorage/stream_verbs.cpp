// create, put, get, cat, rm on the command line.

#include "verb_parser.h"

namespace aotool {
namespace {

void AddCreate(Verbs& verbs) {
  auto options = std::make_shared<CreateOptions>();
  verbs
      .Add({"create", "Make an empty store",
            "aostorage create notes.aos\n"
            "aostorage create --force notes.aos\n"},
           options, &Create)
      .Flag("--force", options->force, "empty a store that is there already");
}

void AddPut(Verbs& verbs) {
  auto options = std::make_shared<CopyOptions>();
  verbs
      .Add({"put", "Store a file as a stream, in the place of an old one",
            "aostorage put notes.aos letters/first first.txt\n"
            "date | aostorage put notes.aos stamp\n",
            "An old stream stays as it is until the new one is whole."},
           options, &Put)
      .Path(*options, "the stream; its folder must be there")
      .Operand("FILE", options->file, "what to store; default: standard input", Need::kOptional)
      .Reserve(*options);
}

void AddGet(Verbs& verbs) {
  auto get = std::make_shared<CopyOptions>();
  verbs
      .Add({"get", "Write a stream to a file, in the place of an old one",
            "aostorage get notes.aos letters/first first.txt\n"
            "aostorage get notes.aos letters/first - | wc -c\n",
            "The bytes come as they are: there is no --json."},
           get, &Get)
      .Path(*get, "the stream")
      .Operand("FILE", get->file, "where to write it; default: standard output", Need::kOptional);

  auto cat = std::make_shared<CopyOptions>();
  verbs
      .Add({"cat", "Write a stream to standard output", "aostorage cat notes.aos letters/first\n",
            "The bytes come as they are: there is no --json."},
           cat, &Get)
      .Path(*cat, "the stream");
}

void AddRm(Verbs& verbs) {
  auto options = std::make_shared<CommonOptions>();
  verbs
      .Add({"rm", "Remove a stream, or a folder with all it holds",
            "aostorage rm notes.aos letters/first\n"
            "aostorage rm notes.aos letters\n"},
           options, &Rm)
      .Path(*options, "the stream or folder");
}

}  // namespace

void AddStreamVerbs(Verbs& verbs) {
  AddCreate(verbs);
  AddPut(verbs);
  AddGet(verbs);
  AddRm(verbs);
}

}  // namespace aotool
