// dump, load, diff, hexdump, blocks on the command line.

#include "text_verbs.h"

#include "verb_parser.h"

namespace aotool {
namespace {

constexpr const char* kAtOffset =
    "PATH can be @OFFSET as well: the stream whose header or one of whose blocks lies at that "
    "place\n"
    "of the file, decimal or 0x and hexadecimal, also where no name leads to it any more.";

void AddText(Verbs& verbs) {
  auto dump = std::make_shared<DumpOptions>();
  verbs
      .Add({"dump", "Print all of a store as text",
            "aostorage dump notes.aos notes.txt\n"
            "aostorage dump notes.aos | grep -c ^plain\n",
            "Of a damaged store what is sound is printed, and the rest told."},
           dump, &Dump)
      .Operand("FILE", dump->file, "where the text goes; standard output when missing or -",
               Need::kOptional)
      .Json(*dump);

  auto load = std::make_shared<LoadOptions>();
  verbs
      .Add({"load", "Make a store of such a text",
            "aostorage load copy.aos notes.txt\n"
            "aostorage dump notes.aos | aostorage load copy.aos\n",
            "STORE appears only when it is whole."},
           load, &Load)
      .Operand("FILE", load->file, "the text; standard input when missing or -", Need::kOptional)
      .Flag("--force", load->force, "replace a file that is there already");
}

void AddDiff(Verbs& verbs) {
  auto diff = std::make_shared<DiffOptions>();
  verbs
      .AddWithoutStore(
          {"diff", "Compare two stores by path",
           "aostorage diff old.aos new.aos\n"
           "aostorage diff --quiet old.aos new.aos && echo the same\n",
           "Exit codes: 0 no difference, 1 differences, 2 any trouble, damage included."},
          diff, &Diff)
      .Operand("A", diff->store, "a storage file")
      .Operand("B", diff->other, "another one")
      .Flag("-q,--quiet", diff->quiet, "print nothing, end at the first difference")
      .Flag("--no-durations", diff->ignoreDurations, "let durations differ")
      .Json(*diff);
}

void AddRecords(Verbs& verbs) {
  auto hexdump = std::make_shared<HexdumpOptions>();
  verbs
      .Add({"hexdump", "Show the records of a store byte by byte, with what they mean",
            "aostorage hexdump notes.aos\n"
            "aostorage hexdump notes.aos settings/volume\n"
            "aostorage hexdump notes.aos --offset 0x142c --length 200\n",
            kAtOffset},
           hexdump, &Hexdump)
      .Path(*hexdump, "a stream: its header and its blocks alone", Need::kOptional)
      .Number("--offset", hexdump->offset, 0, 0xFFFFFFFFU, "begin at this place of the file")
      .Number("--length", hexdump->length, 0, 0xFFFFFFFFU, "show so many bytes of the file")
      .Flag("-a,--all", hexdump->all, "show all data, not just the first 256 bytes of each block")
      .Json(*hexdump);

  auto blocks = std::make_shared<CommonOptions>();
  verbs
      .Add({"blocks", "Show the chain of blocks of a stream",
            "aostorage blocks notes.aos letters/first\n"
            "aostorage blocks notes.aos @5164\n",
            kAtOffset},
           blocks, &Blocks)
      .Path(*blocks, "the stream")
      .Json(*blocks);
}

}  // namespace

void AddTextVerbs(Verbs& verbs) {
  AddText(verbs);
  AddDiff(verbs);
  AddRecords(verbs);
}

}  // namespace aotool
