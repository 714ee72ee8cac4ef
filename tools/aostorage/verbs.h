// What the tool can do: one function for each verb, with the options that the command line fills
// in. Each reports its failures to `report`.
#ifndef AOSTORAGE_TOOLS_VERBS_H_
#define AOSTORAGE_TOOLS_VERBS_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "entry_values.h"
#include "report.h"
#include "style.h"

namespace aotool {

struct CommonOptions {
  std::string store;
  std::string path;           // in the store; empty for the root
  std::uint32_t reserve = 0;  // room behind the data of each new block
  ColorRule color = ColorRule::kAuto;
  bool json = false;  // of the verbs that read
};

struct CreateOptions : CommonOptions {
  bool force = false;
};
void Create(const CreateOptions& options, Report& report);

struct CopyOptions : CommonOptions {
  std::string file;  // "-" and "": standard input or output
};
void Put(const CopyOptions& options, Report& report);
void Get(const CopyOptions& options, Report& report);
void Rm(const CommonOptions& options, Report& report);

struct ListOptions : CommonOptions {
  bool details = false;
  bool durations = false;
  std::string order = "name";  // or "slot" or "none"
};
void List(const ListOptions& options, Report& report);
void Tree(const CommonOptions& options, Report& report);
void Info(const CommonOptions& options, Report& report);

struct MkdirOptions : CommonOptions {
  bool parents = false;
};
void Mkdir(const MkdirOptions& options, Report& report);

struct MoveOptions : CommonOptions {
  std::string to;
};
void Move(const MoveOptions& options, Report& report);

struct CopyTreeOptions : CommonOptions {
  std::string from, to;  // STORE:PATH; `store` and `path` stay empty
  bool force = false;
  bool merge = false;
};
void CopyTree(const CopyTreeOptions& options, Report& report);

struct RebuildOptions : CommonOptions {
  std::optional<std::string> output;  // a file for the new store; without: in the old one's place
  bool force = false;
  bool dropHidden = false;
};
void Compact(const RebuildOptions& options, Report& report);
void Upgrade(const RebuildOptions& options, Report& report);

struct ImportOptions : CommonOptions {
  std::string directory;
  std::string into;  // a path in the store; empty for the root
  bool cut = false;
  bool force = false;
};
void ImportTree(const ImportOptions& options, Report& report);

struct ExportOptions : CommonOptions {
  std::string directory;
  bool force = false;
};
void ExportTree(const ExportOptions& options, Report& report);

struct SetOptions : CommonOptions {
  std::map<ValueType, std::string> given;  // exactly one
};
void SetEntry(const SetOptions& options, Report& report);

struct GetEntryOptions : CommonOptions {
  ValueType type = ValueType::kInt;
  std::optional<std::string> defaultValue;
};
void PrintEntry(const GetEntryOptions& options, Report& report);

struct LogOptions : CommonOptions {
  std::string file;  // "-" and "": standard input
  bool list = false;
};
void Log(const LogOptions& options, Report& report);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_VERBS_H_
