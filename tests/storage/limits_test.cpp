// Names, counts, offsets and file sizes at their borders: as documented, nothing wraps.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include <aostorage/inspect.h>

#include "folder/storage_fixture.h"
#include "support/check_file.h"
#include "support/size.h"

namespace aostorage::testing {
namespace {

namespace fs = std::filesystem;

class Limits : public OneStorageTest {};

TEST_F(Limits, OfNames) {
  for (const std::size_t size : {0U, 1U, 60U, 61U, 300U}) {
    SCOPED_TRACE(size);
    storage = Create();
    const Stream folder = MakeRoot("folder", kFolderKind);
    const std::string text(size, 'n');
    const char* name = text.c_str();
    const bool fits = size == 1 || size == 60;
    tag_aoStream header;
    tag_aoStreamOffset offset;
    CPathLoader loader;
    CCompStgFile facade;
    const std::pair<const char*, std::function<bool()>> makers[] = {
        {"root", [&] { return Got(storage->CreateStream(name, kWriteFlags)); }},
        {"root folder", [&] { return Got(storage->CreateStream(name, kFolderKind, kWriteFlags)); }},
        {"reserved", [&] { return Got(storage->CreateStreamFast(name, kWriteFlags)); }},
        {"open or create", [&] { return Got(storage->OpenOrCreateStream(name, kPlainKind)); }},
        {"entry", [&] { return storage->SetEntry(name, 7) == 1; }},
        {"erased entry", [&] { return storage->SetEntryEraseOld(name, "x", 1) == 1; }},
        {"child", [&] { return Got(folder->CreateStream(name, kPlainKind, kWriteFlags)); }},
        {"child entry", [&] { return folder->SetEntry(name, "x") == 1; }},
        {"child log", [&] { return folder->SetEntry(name, "x", 1) == 1; }},
        {"header", [&] { return folder->AddStreamHeader(name, kPlainKind, header, offset); }},
        {"path", [&] { return loader.GetStreamByPath(storage.get(), text, 1, 1) != nullptr; }},
        {"path's end",
         [&] { return loader.GetStreamByPath(storage.get(), "folder/" + text, 1, 1) != nullptr; }},
    };
    for (const auto& [what, make] : makers) {
      SCOPED_TRACE(what);
      const Bytes before = File();
      // "folder/" is the folder itself.
      const bool isFolder = size == 0 && std::string(what) == "path's end";
      EXPECT_EQ(make(), fits || isFolder);
      loader.CloseOpenStorages();
      EXPECT_EQ(File() == before, !fits);
      Stream root = Root(text), child(folder->OpenStream(name, kWriteFlags));
      EXPECT_EQ((root != nullptr) + (child != nullptr), fits ? 1 : 0);
      if (root) {
        EXPECT_EQ(root->GetName(), text);
        EXPECT_TRUE(Remove(root));
      }
      if (child) {
        EXPECT_EQ(child->GetName(), text);
        EXPECT_TRUE(Remove(child));
      }
    }
    EXPECT_EQ("", CheckFile(path, Rules::kAfterFault));
  }
}

TEST_F(Limits, OfTheFirstDirectoryBlock) {
  for (const auto form : {FileBuilder::Form::kCurrent, FileBuilder::Form::kOlder}) {
    const std::size_t room = form == FileBuilder::Form::kCurrent ? 58 : 62;
    for (const std::size_t count : {57U, 58U, 59U, 62U, 63U}) {
      Load(FileBuilder(form));
      for (std::size_t i = 0; i < count; ++i)
        ASSERT_TRUE(Append(*MakeRoot(std::to_string(i)), Pattern(9, static_cast<unsigned>(i))));
      Reopen();
      const RawImage image = Image();
      EXPECT_EQ(image.directories.size(), count > room ? 2U : 1U) << count;
      EXPECT_EQ(image.streams.size(), count);
      for (std::size_t i = 0; i < count; ++i)
        EXPECT_EQ(ReadValue(*Root(std::to_string(i))), Pattern(9, static_cast<unsigned>(i)));
      EXPECT_EQ("", CheckFile(path));
    }
  }
}

TEST_F(Limits, OfManyStreams) {
  const int count = FullSize() ? 100000 : 10000;
  storage = Create();
  Stream folder = MakeRoot("folder", kFolderKind);
  for (int i = 0; i < count; ++i) {
    const std::string name = std::to_string(i);
    ASSERT_TRUE(MakeRoot(name));
    ASSERT_EQ(folder->SetEntry(name.c_str(), i), 1);
  }
  folder.reset();
  const auto expectRoots = [&](int roots) {
    EXPECT_EQ(storage->GetSubfolderCount("folder"), static_cast<std::uint32_t>(count));
    EXPECT_EQ(NamesIn(*Root("folder")).size(), static_cast<std::size_t>(count));
    StreamCookie cookie = 0;
    int met = 0;
    for (Stream walk(storage->OpenStreamFirst(cookie, kReadFlags)); walk; ++met)
      walk.reset(storage->OpenStreamNext(cookie, kReadFlags));
    EXPECT_EQ(met, roots);
    EXPECT_EQ("", CheckFile(path));
  };
  Reopen();
  expectRoots(count + 1);
  folder = Root("folder");
  int removed = 0;
  for (int i = 0; i < count; i += 997, ++removed) {
    Stream stream = Root(std::to_string(i));
    ASSERT_TRUE(stream && Remove(stream));
    ASSERT_EQ(folder->GetEntry(std::to_string(i).c_str(), -1), i);
  }
  folder.reset();
  aoStorage* const before = storage.get();
  storage.reset(aoStorage::Recreate(storage.release(), path.c_str()));
  EXPECT_NE(storage.get(), before);
  expectRoots(count + 1 - removed);
}

TEST_F(Limits, OfCounts) {
  // What a caller with a count of 4 GiB could mean.
  constexpr std::size_t kLarge = std::size_t{1} << 32;
  void* const mapped = mmap(nullptr, kLarge, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(mapped, MAP_FAILED);
  for (const std::uint32_t count : {0U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
    SCOPED_TRACE(count);
    FileBuilder builder;
    builder.AddStream(6, "a", Pattern(100), {60, 200});
    Load(builder);
    const Stream a = Root("a"), folder = MakeRoot("folder", kFolderKind);
    ASSERT_EQ(folder->SetEntryEraseOld("entry", "0123456789", 10), 10);
    const Bytes before = File();
    const auto whole = static_cast<std::int32_t>(count);
    EXPECT_EQ(a->Read(mapped, count), count == 0 ? 0U : 100U);
    EXPECT_EQ(a->Seek(count, 0), count == 0 ? 0U : kFailed);
    a->Seek(0, 0);
    EXPECT_EQ(a->Seek(count, 2), count == 0 ? 0U : kFailed);
    a->Seek(0, 0);
    EXPECT_EQ(a->Seek(count, 1, false), count == 0 ? 0U : kFailed);
    const bool outside = count == 0x7FFFFFFF || count == 0x80000000;  // -1 and -2 are from the end
    EXPECT_EQ(a->Seek2(whole, 0), outside ? -1 : 0);
    a->Seek(0, 0);
    EXPECT_TRUE(a->SetLength(100));
    if (count != 0) {
      EXPECT_FALSE(a->SetLength(count));
      EXPECT_EQ(folder->SetEntryEraseOld("entry", nullptr, count), 0);
    }
    EXPECT_EQ(folder->GetEntryErasedOld("entry", mapped, count), count == 0 ? 1 : 0);
    EXPECT_EQ(storage->GetEntryErasedOld("a", mapped, count), count == 0 ? 1 : 0);
    EXPECT_EQ(folder->SetEntry("entry", nullptr, count), count == 0 ? 1 : 0);
    CAoStreamFile file(a.get());
    EXPECT_EQ(file.Seek(whole, 0), outside ? -1 : 0);
    aoStream2 memory;
    EXPECT_EQ(memory.Read(mapped, count), 0U);
    if (count != 0x7FFFFFFF) {
      EXPECT_EQ(memory.Write(mapped, count), 0U);
    }
    EXPECT_EQ(File(), before) << "nothing of this writes";
    // A write that cannot be whole: at the end of the file no byte of it, and no length.
    const Stream made = MakeRoot("made");
    EXPECT_EQ(made->Write(mapped, count), count == 0 ? 0U : kFailed);
    EXPECT_EQ(Raw("made").length, 0U);
    a->Seek(0, 0);
    a->Seek(0, 1);
    EXPECT_EQ(a->Write(mapped, count, true), count == 0 ? 0U : kFailed);
    EXPECT_EQ(Slice(Raw("a").chain, 0, 100), Pattern(100));
    EXPECT_LT(fs::file_size(path), 10000U);
    CCompStgFile facade;
    storage.reset();
    ASSERT_EQ(facade.Open(path.c_str(), 2) + facade.OpenGenericStream("a"), 2);
    auto* const bytes = static_cast<std::uint8_t*>(mapped);
    if (whole < 0) {
      EXPECT_EQ(facade.WriteGenericStream(bytes, whole), 0);
      EXPECT_EQ(facade.ReadGenericStream(bytes, whole), kFailed);
    }
  }
  munmap(mapped, kLarge);
}

// Where the last block of a chain lies, and what it can hold: nothing reaches 2 GiB.
TEST_F(Limits, OfTheLastBlocksPlace) {
  constexpr std::uint32_t kEnd = 0x80000000;
  struct Row {
    std::uint32_t offset, data;
    bool readable;
  };
  const Row rows[] = {{kEnd - 120, 100, true}, {kEnd - 119, 100, false}, {kEnd - 20, 0, true},
                      {kEnd - 19, 0, false},   {kEnd - 1, 0, false},     {kEnd, 0, false},
                      {kEnd, 100, false},      {0xFFFFFFEC, 0, false},   {0xFFFFFFFF, 0, false}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.offset);
    FileBuilder builder;
    const std::uint32_t first = builder.AddStream(6, "a", Pattern(50));
    Put32(builder.bytes, first + 16, row.offset);
    Put32(builder.bytes, SlotOffset(6) + 68, 50 + row.data);
    WriteFile(path, builder.bytes);
    Bytes block(20 + row.data, 'x');
    for (const auto& [at, word] : {std::pair<std::size_t, std::uint32_t>{0, kBlockMagic},
                                   {4, 20 + row.data},
                                   {8, 20 + row.data},
                                   {12, first},
                                   {16, 0}})
      Put32(block, at, word);
    const int descriptor = open(path.c_str(), O_WRONLY);
    ASSERT_EQ(pwrite(descriptor, block.data(), block.size(), row.offset),
              static_cast<ssize_t>(block.size()));
    close(descriptor);
    const auto size = fs::file_size(path);
    storage = Open();
    const Stream a = Root("a");
    Bytes data(500);
    EXPECT_EQ(a->Read(data.data(), 500), row.readable ? 50 + row.data : kFailed);
    const bool atEnd = a->Seek(0, 0) == 0 && a->Seek(50 + row.data, 0) == 0;
    EXPECT_EQ(atEnd, row.offset <= kEnd - 20 || row.data == 0) << "a seek reads headers alone";
    EXPECT_EQ(a->Write("x", 1), kFailed);
    EXPECT_FALSE(Append(*MakeRoot("new"), Pattern(1)));
    EXPECT_EQ(fs::file_size(path), size) << "nothing is written at or behind the border";
    a->Seek(0, 0);
    EXPECT_EQ(a->Write("y", 1), 1U) << "inside, all goes on";
  }
}

TEST_F(Limits, OfTheFilesSize) {
  constexpr std::uint64_t kEnd = 0x80000000;
  struct Row {
    std::uint64_t size;
    std::uint32_t room;  // data bytes that one more block can take
  };
  const Row rows[] = {{kEnd - 5132 - 1, 5113}, {kEnd - 120, 100}, {kEnd - 20, 0},
                      {kEnd - 19, 0},          {kEnd, 0},         {kEnd + 1, 0},
                      {0xFFFFFFFF, 0},         {kEnd * 2, 0},     {kEnd * 2 + 44, 0}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.size);
    FileBuilder builder;
    builder.AddStream(6, "a", Pattern(50));
    WriteFile(path, builder.bytes);
    fs::resize_file(path, row.size);
    storage = Open();
    ASSERT_TRUE(storage);
    EXPECT_EQ(ReadValue(*Root("a")), Pattern(50));
    const Stream made = MakeRoot("made");
    ASSERT_TRUE(made) << "a slot is free";
    EXPECT_EQ(made->Write(Pattern(row.room + 1).data(), row.room + 1), kFailed);
    EXPECT_EQ(LastError().code, ErrorCode::kTooLarge);
    EXPECT_EQ(fs::file_size(path), row.size);
    if (row.room != 0) {
      EXPECT_EQ(made->Write(Pattern(row.room).data(), row.room), row.room);
      EXPECT_EQ(fs::file_size(path), std::max(kEnd, row.size));
      EXPECT_EQ(ReadValue(*made), Pattern(row.room));
      EXPECT_EQ(made->Write("x", 1), kFailed) << "the tail cannot grow";
    }
    for (int i = 2; i < 58; ++i) ASSERT_TRUE(MakeRoot(std::to_string(i)));
    EXPECT_FALSE(MakeRoot("59th")) << "no room for a directory block";
    EXPECT_EQ(fs::file_size(path), std::max<std::uint64_t>(row.size, row.room != 0 ? kEnd : 0));
    EXPECT_EQ(ReadValue(*Root("a")), Pattern(50));
    storage.reset();
    if (FullSize()) {  // the hole is looked at
      EXPECT_TRUE(Inspection::Of(path.c_str()));
    }
    EXPECT_EQ(aoStorage::Recreate(path.c_str()), 1);
    EXPECT_LT(fs::file_size(path), 20000U);
    EXPECT_EQ(Raw("a").Value(), Pattern(50));
  }
}

}  // namespace
}  // namespace aostorage::testing
