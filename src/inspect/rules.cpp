// What the rules are called, how grave it is to break one, and what that means.
#include <aostorage/inspect.h>

#include "inspect/inspected_file.h"

namespace aostorage {
namespace {

struct RuleEntry {
  Rule rule;
  const char* name;
  Severity severity;
  const char* text;
};

constexpr Severity kNote = Severity::kNote;
constexpr Severity kWarning = Severity::kWarning;
constexpr Severity kError = Severity::kError;

constexpr RuleEntry kRules[] = {
    {Rule::kFileHeader, "I1", kError, "the file does not begin as a storage file does"},
    {Rule::kFirstDirectory, "I2", kError,
     "there is no directory behind the file header: no root stream can be reached by name"},
    {Rule::kDirectoryBlock, "I3", kError,
     "a directory block is damaged: its root streams may be lost, and so may those of the blocks "
     "behind it"},
    {Rule::kDirectoryChain, "I4", kError, "the directory leads back into itself"},
    {Rule::kSlotInUse, "I6", kError, "a stream header is damaged: the stream cannot be opened"},
    {Rule::kEmptySlot, "I7", kWarning, "a slot without a stream holds bytes all the same"},
    {Rule::kVacatedSlot, "I8", kWarning, "the slot of a removed stream holds more than its chain"},
    {Rule::kFolderSlotMagic, "I9", kError,
     "a slot of a folder is damaged: walks end there, and the stream it may have held is lost"},
    {Rule::kNoBlockNoLength, "I10", kError, "a stream has a length and no block to hold it"},
    {Rule::kBlockWords, "I11", kError, "a chain leads to something that is no block"},
    {Rule::kBlockInside, "I12", kError,
     "a block reaches behind the end of the file: its data is cut off, or writing to it fails"},
    {Rule::kChainEnd, "I13", kError, "a chain leads out of the file or back into itself"},
    {Rule::kPreviousBlock, "I14", kWarning,
     "a block does not know the one before it: one of the two links may be wrong"},
    {Rule::kNoOverlap, "I15", kError,
     "two records claim the same bytes: writing to one destroys the other"},
    {Rule::kLengthInData, "I16", kNote,
     "the length is above what the blocks hold: a shortening write was broken off, or two objects "
     "wrote to the stream"},
    {Rule::kLastBlock, "I17", kWarning, "the word lastBlock names no block of the chain"},
    {Rule::kReachable, "I18", kError, "a record lies where no reader can come, behind 2 GiB"},
    {Rule::kFolderHasCount, "I19", kNote,
     "a folder has no count word: its creation was broken off"},
    {Rule::kCountedSlots, "I20", kError, "a folder counts more slots than there are"},
    {Rule::kNoUncounted, "I21", kWarning,
     "a folder holds several slots that its count does not cover"},
    {Rule::kNoFolderInItself, "I23", kError, "a folder holds itself"},
    {Rule::kLengthInRoom, "I24", kError,
     "the length is above all that the blocks could ever hold: a part of the chain is lost"},
    {Rule::kRemovedStream, "N1", kNote,
     "a stream was removed here; its bytes are there until a new stream takes the slot"},
    {Rule::kHiddenName, "N2", kNote,
     "another stream of the same name is found in the place of this one"},
    {Rule::kUncountedSlot, "N3", kNote,
     "the folder's count does not cover this slot: the creation was broken off"},
    {Rule::kLostStream, "N4", kNote, "a stream header to which no directory or folder leads"},
    {Rule::kOrphanChain, "N5", kNote,
     "blocks that nobody reaches: left by an append that was broken off, or by a removed folder"},
    {Rule::kUnknownBytes, "N6", kNote, "bytes that belong to nobody"},
    {Rule::kUnreadable, "N7", kError, "the operating system cannot read here"},
    {Rule::kGivenUp, "N8", kError, "there are more records than could be looked at"},
};

const RuleEntry* Find(Rule rule) {
  for (const RuleEntry& entry : kRules) {
    if (entry.rule == rule) return &entry;
  }
  return nullptr;
}

}  // namespace

const char* RuleName(Rule rule) noexcept {
  const RuleEntry* entry = Find(rule);
  return entry == nullptr ? "?" : entry->name;
}

const char* RuleText(Rule rule) noexcept {
  const RuleEntry* entry = Find(rule);
  return entry == nullptr ? "" : entry->text;
}

Severity detail::SeverityOf(Rule rule) {
  const RuleEntry* entry = Find(rule);
  return entry == nullptr ? Severity::kError : entry->severity;
}

}  // namespace aostorage
