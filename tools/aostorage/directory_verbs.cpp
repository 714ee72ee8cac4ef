// import, export on the command line.

#include "verb_parser.h"

namespace aotool {

void AddDirectoryVerbs(Verbs& verbs) {
  auto import = std::make_shared<ImportOptions>();
  verbs
      .Add({"import", "Store a directory tree: files as streams, directories as folders",
            "aostorage import notes.aos ~/letters --into letters\n"
            "aostorage import notes.aos ~/letters --into letters --force\n",
            "An old stream stays as it is until the new one is whole."},
           import, &ImportTree)
      .Operand("DIR", import->directory, "the directory; what it holds is stored")
      .Option("--into", import->into, "FOLDER",
              "the folder that takes it, made when missing; default: the root")
      .Flag("--cut", import->cut, "cut names that are too long, instead of leaving them out")
      .Flag("--force", import->force, "replace streams that are there already")
      .Reserve(*import);

  auto exported = std::make_shared<ExportOptions>();
  verbs
      .Add({"export", "Write streams and folders to a directory",
            "aostorage export notes.aos out\n"
            "aostorage export notes.aos out letters --force\n"},
           exported, &ExportTree)
      .Operand("DIR", exported->directory, "the directory, made when missing")
      .Path(*exported, "the folder or stream to write; default: everything", Need::kOptional)
      .Flag("--force", exported->force, "replace files that are there already");
}

}  // namespace aotool
