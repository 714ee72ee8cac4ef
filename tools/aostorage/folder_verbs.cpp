// mkdir, mv, cp on the command line.

#include "verb_parser.h"

namespace aotool {
namespace {

void AddMkdir(Verbs& verbs) {
  auto options = std::make_shared<MkdirOptions>();
  verbs
      .Add({"mkdir", "Make a folder",
            "aostorage mkdir notes.aos letters\n"
            "aostorage mkdir -p notes.aos letters/2024/june\n"},
           options, &Mkdir)
      .Path(*options, "the new folder")
      .Flag("-p,--parents", options->parents,
            "make the folders above it too; no error if it is there already");
}

void AddMv(Verbs& verbs) {
  auto options = std::make_shared<MoveOptions>();
  verbs
      .Add({"mv", "Rename or move a stream or a folder, never onto another one",
            "aostorage mv notes.aos letters/first second\n"
            "aostorage mv notes.aos letters/first /first\n"
            "aostorage mv notes.aos letters/first archive/\n"},
           options, &Move)
      .Path(*options, "the stream or folder")
      .Operand("TO", options->to,
               "a new name in the same folder; or, with a slash in it, a path from the root, "
               "/NAME for the root itself; or, with a slash at its end, the folder to move into")
      .Reserve(*options);
}

void AddCp(Verbs& verbs) {
  auto options = std::make_shared<CopyTreeOptions>();
  verbs
      .AddWithoutStore(
          {"cp", "Copy a stream or a folder with all it holds, within a store or to another one",
           "aostorage cp notes.aos:letters notes.aos:copies\n"
           "aostorage cp notes.aos:letters/first other.aos:\n"
           "aostorage cp --merge notes.aos:letters other.aos:letters\n",
           "STORE ends at the first colon that has a file on its left, or else at the first "
           "colon.\n"
           "Nothing that is there is overwritten unasked, and a stream that is stays as it is "
           "until\n"
           "the new one is whole. The copy is read back before it counts as done."},
          options, &CopyTree)
      .Operand("FROM", options->from, "STORE:PATH of the stream or folder")
      .Operand("TO", options->to,
               "STORE:PATH of the copy; or, with a slash at its end, of the folder to copy "
               "into; STORE: for the root")
      .Flag("--force", options->force, "replace a plain stream that is there already")
      .Flag("--merge", options->merge,
            "copy into a folder that is there already: what has the same name in it is "
            "replaced, everything else in it stays")
      .Reserve(*options);
}

}  // namespace

void AddFolderVerbs(Verbs& verbs) {
  AddMkdir(verbs);
  AddMv(verbs);
  AddCp(verbs);
}

}  // namespace aotool
