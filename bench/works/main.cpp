/// @file
/// Runs the works: every competitor once in each repetition, in an order that turns from one
/// repetition to the next. Writes what was measured, one line for each figure; report.py makes
/// medians and ratios of it.
#include <sys/statfs.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>
#include <sstream>

#include "../support.h"
#include "works.h"

namespace {

using namespace aobench;

struct Place {
  std::string name;  ///< "tmpfs" or "disk"
  std::string directory;
};

struct Options {
  bool quick = false;
  int repetitions = 0;
  std::string works;  ///< names with commas, "" for all
  std::string who;    ///< competitors likewise, by the first word of their names
  std::string places = "tmpfs,disk";
  std::string disk;
  std::string output = "bench.jsonl";
};

constexpr char kUsage[] =
    "usage: aostorage_bench [--quick] [--repetitions N] [--works W3,S,...] [--who "
    "aostorage,bare,...]\n"
    "                       [--places tmpfs,disk] [--disk DIR] [--out FILE]\n";

bool Parse(int count, char** arguments, Options& options) {
  for (int i = 1; i < count; ++i) {
    const std::string name = arguments[i];
    if (name == "--quick") {
      options.quick = true;
      continue;
    }
    if (i + 1 == count) return false;
    const std::string value = arguments[++i];
    if (name == "--repetitions") {
      options.repetitions = std::atoi(value.c_str());
      if (options.repetitions < 1) return false;
    } else if (name == "--works") {
      options.works = value;
    } else if (name == "--who") {
      options.who = value;
    } else if (name == "--places") {
      options.places = value;
    } else if (name == "--disk") {
      options.disk = value;
    } else if (name == "--out") {
      options.output = value;
    } else {
      return false;
    }
  }
  if (options.repetitions == 0) options.repetitions = options.quick ? 3 : 5;
  return true;
}

/// Whether one of the names in `list` stands in `wanted`; both are split at blanks and commas.
bool Wanted(const std::string& wanted, const char* list) {
  if (wanted.empty()) return true;
  std::istringstream names(list);
  for (std::string name; names >> name;) {
    if (("," + wanted + ",").find("," + name + ",") != std::string::npos) return true;
  }
  return false;
}

std::vector<Competitor> AllCompetitors(std::string& peers) {
  std::vector<Competitor> all = {
      {"aostorage", MakeLibrary, kWorks | kChanges | kCompaction | kScaling},
      {"bare", MakeBare, kWorks | kChanges | kScaling},
  };
  if (MakeMappedLibrary()) {
    all.push_back({"aostorage-map", MakeMappedLibrary, kWorks | kChanges | kScaling});
  } else {
    std::cerr << "this library has no UseMapping: no rows with the mapping\n";
  }
  all.push_back({"bare-map", MakeBareMapped, kWorks | kScaling | kReadsOnly});
  all.push_back({"files", MakeFiles, kWorks | kChanges});
  all.push_back({"cp", MakeCp, kCompaction});
  all.push_back({"cp-flushed", MakeCpFlushed, kCompaction});
  all.push_back({"two-copies", MakeTwoCopies, kCompaction});
  struct Peer {
    std::string (*add)(std::vector<Competitor>&);
    const char* name;
  };
  for (const auto& [add, name] : {Peer{AddSqlite, "SQLite"}, Peer{AddLmdb, "LMDB"},
                                  Peer{AddHdf5, "HDF5"}, Peer{AddGsf, "libgsf"}}) {
    const std::string version = add(all);
    if (version.empty()) {
      std::cerr << name << " was not found when this was built: it takes no part\n";
    } else {
      peers += (peers.empty() ? "" : ", ") + version;
    }
  }
  return all;
}

std::string FileSystemOf(const std::string& directory) {
  struct statfs status {};
  if (::statfs(directory.c_str(), &status) != 0) return "unknown";
  switch (static_cast<unsigned long>(status.f_type)) {
    case 0x01021994:
      return "tmpfs";
    case 0xEF53:
      return "ext4";
    case 0x58465342:
      return "xfs";
    case 0x9123683E:
      return "btrfs";
    case 0x794C7630:
      return "overlay";
    default:
      return "another file system";
  }
}

std::string AfterColon(const char* path, const char* key) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (line.compare(0, std::strlen(key), key) != 0) continue;
    const std::size_t value = line.find_first_not_of(" \t:", std::strlen(key));
    return value == std::string::npos ? "" : line.substr(value);
  }
  return "";
}

std::string LoadNow() {
  double load = 0;
  if (::getloadavg(&load, 1) != 1) return "unknown";
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", load);
  return text;
}

/// None of the texts holds what would have to be escaped, but for what the processor calls itself.
std::string Quoted(std::string text) {
  for (char& c : text) {
    if (c == '"' || c == '\\' || static_cast<unsigned char>(c) < 0x20) c = ' ';
  }
  return '"' + text + '"';
}

std::vector<Place> FindPlaces(const Options& options) {
  std::vector<Place> places;
  if (Wanted(options.places, "tmpfs")) {
    if (::access("/dev/shm", W_OK) == 0) {
      places.push_back({"tmpfs", "/dev/shm"});
    } else {
      std::cerr << "/dev/shm cannot be written: no figures on tmpfs\n";
    }
  }
  if (Wanted(options.places, "disk")) {
    const char* const variable = std::getenv("TMPDIR");
    std::string directory = options.disk;
    if (directory.empty()) directory = variable != nullptr && *variable != 0 ? variable : ".";
    if (FileSystemOf(directory) == "tmpfs")
      std::cerr << directory << " is no disk but tmpfs; give another one with --disk\n";
    places.push_back({"disk", directory});
  }
  return places;
}

void WriteFacts(std::ostream& out, const Options& options, const std::vector<Place>& places,
                const std::string& peers) {
  struct utsname system {};
  ::uname(&system);
  char date[16];
  const std::time_t now = std::time(nullptr);
  std::strftime(date, sizeof date, "%Y-%m-%d", std::gmtime(&now));
  out << "{\"facts\": {\"date\": " << Quoted(date)
      << ", \"quick\": " << (options.quick ? "true" : "false")
      << ", \"repetitions\": " << options.repetitions
      << ", \"processor\": " << Quoted(AfterColon("/proc/cpuinfo", "model name"))
      << ", \"cores\": " << ::sysconf(_SC_NPROCESSORS_ONLN)
      << ", \"memory\": " << Quoted(AfterColon("/proc/meminfo", "MemTotal"))
      << ", \"kernel\": " << Quoted(std::string(system.sysname) + " " + system.release)
      << ", \"compiler\": " << Quoted(AOSTORAGE_BENCH_COMPILER) << ", \"peers\": " << Quoted(peers)
      << ", \"load\": " << Quoted(LoadNow());
  for (const Place& place : places)
    out << ", " << Quoted(place.name) << ": " << Quoted(FileSystemOf(place.directory));
  out << "}}\n";
}

void WriteRow(std::ostream& out, const Place& place, int repetition, const Competitor& competitor,
              const Row& row) {
  static constexpr const char* kOutcomes[] = {"done", "failed", "cannot"};
  char seconds[32];
  std::snprintf(seconds, sizeof seconds, "%.9f", row.seconds);
  out << "{\"place\": " << Quoted(place.name) << ", \"work\": " << Quoted(row.work)
      << ", \"n\": " << row.n << ", \"who\": " << Quoted(competitor.name)
      << ", \"repetition\": " << repetition << ", \"outcome\": \""
      << kOutcomes[static_cast<int>(row.outcome)] << "\", \"seconds\": " << seconds
      << ", \"items\": " << row.items << ", \"before\": " << row.bytesBefore
      << ", \"after\": " << row.bytesAfter << "}\n";
}

/// @return false when a competitor failed at something that it can do
bool RunOne(std::ostream& out, const Place& place, int repetition, const Competitor& competitor,
            const Scenario& scenario, bool quick) {
  const TempDir directory(place.directory);
  Run run{competitor, directory.Path(), quick ? std::size_t{10} : std::size_t{1}, {}};
  aostorage::ClearLastError();
  scenario.run(run);
  bool good = true;
  for (const Row& row : run.rows) {
    WriteRow(out, place, repetition, competitor, row);
    if (row.outcome != Outcome::kFailed) continue;
    good = false;
    std::cerr << "FAILED: " << competitor.name << " at " << row.work << ", n " << row.n << ", on "
              << place.name << "; the library's last error: " << aostorage::LastError().text
              << "\n";
  }
  return good;
}

}  // namespace

int main(int count, char** arguments) {
  Options options;
  if (!Parse(count, arguments, options)) {
    std::cerr << kUsage;
    return 2;
  }
  std::string peers;
  const std::vector<Competitor> competitors = AllCompetitors(peers);
  const std::vector<Place> places = FindPlaces(options);
  std::ofstream out(options.output);
  WriteFacts(out, options, places, peers);

  bool good = true;
  std::size_t turn = 0;
  for (int repetition = 0; repetition < options.repetitions; ++repetition) {
    for (const Place& place : places) {
      for (const Scenario& scenario : Scenarios()) {
        if (!Wanted(options.works, scenario.works)) continue;
        std::cerr << "repetition " << repetition + 1 << " of " << options.repetitions << ", "
                  << place.name << ": " << scenario.works << "\n";
        std::vector<const Competitor*> present;
        for (const Competitor& competitor : competitors) {
          const std::string first = competitor.name.substr(0, competitor.name.find(' '));
          if (competitor.Has(scenario.part) && Wanted(options.who, first.c_str()))
            present.push_back(&competitor);
        }
        for (std::size_t i = 0; i < present.size(); ++i) {
          const Competitor& competitor = *present[(i + turn) % present.size()];
          good = RunOne(out, place, repetition, competitor, scenario, options.quick) && good;
        }
      }
    }
    ++turn;
  }
  out.flush();
  if (!out) std::cerr << options.output << " could not be written\n";
  return good && out ? 0 : 1;
}
