// The reason beside every failure: which code, of which operation, at which place.
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <new>
#include <set>
#include <thread>

#include "folder/storage_fixture.h"
#include "support/allocations.h"

namespace aostorage::testing {
namespace {

// What each row may use: a storage with a sound and several damaged streams.
class Reasons : public OneStorageTest {
 protected:
  void SetUp() override {
    FileBuilder builder;
    builder.AddStream(6, "a", Pattern(10));
    const std::uint32_t child = builder.AddChain({4, 0});
    childSlot =
        builder.AddStream(7, "f", FolderPayload({StreamRecord("x", false, 2, child)}), {}, true) +
        kBlockHeaderSize + 4;
    noMagic = builder.AddStream(8, "noMagic", Pattern(10));
    Put32(builder.bytes, noMagic, 1);
    words = builder.AddStream(9, "words", Pattern(10));
    Put32(builder.bytes, words + 4, 19);
    round = builder.AddStream(10, "round", Pattern(10));
    Put32(builder.bytes, round + 16, round);
    tooLong = builder.AddStream(11, "long", Pattern(10));
    builder.PutSlot(11, StreamRecord("long", false, 50, tooLong));
    cut = builder.AddStream(12, "cut", Pattern(200));
    builder.bytes.resize(builder.bytes.size() - 1);
    builder.PutSlot(13, StreamRecord("away", false, 10, 50000));
    builder.PutSlot(14, StreamRecord("beyond", false, 10, 0x80000000));
    Load(builder);
    ClearLastError();
  }
  std::uint32_t childSlot = 0, noMagic = 0, words = 0, round = 0, tooLong = 0, cut = 0;
  Bytes out = Bytes(500);
};

struct Row {
  const char* what;
  std::function<void()> act;
  ErrorCode code;
  const char* operation;
  std::uint64_t offset = kNoFileOffset;
  int systemError = 0;
};

void Check(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    ClearLastError();
    row.act();
    const Error& error = LastError();
    EXPECT_STREQ(ErrorName(error.code), ErrorName(row.code));
    EXPECT_STREQ(error.operation, row.operation);
    EXPECT_EQ(error.fileOffset, row.offset);
    EXPECT_EQ(error.systemError, row.systemError);
    EXPECT_STREQ(error.text, ErrorText(row.code));
  }
}

TEST_F(Reasons, OfDamageNameTheRecordAtFault) {
  const auto read = [&](const char* name) {
    return [this, name] { Root(name)->Read(out.data(), 500); };
  };
  Check({{"magic", read("noMagic"), ErrorCode::kBadMagic, "aoStream::Read", noMagic},
         {"words", read("words"), ErrorCode::kContradiction, "aoStream::Read", words},
         {"cycle", read("round"), ErrorCode::kCycle, "aoStream::Read", round},
         {"cut", read("cut"), ErrorCode::kTruncated, "aoStream::Read", cut},
         {"away", read("away"), ErrorCode::kOutOfRange, "aoStream::Read", 50000},
         {"beyond", read("beyond"), ErrorCode::kOutOfRange, "aoStream::Read", 0x80000000},
         {"cut, header and data apart",
          [&] {
            const Stream stream = Root("cut");
            stream->Seek(150, 0);
            stream->Read(out.data(), 100);
          },
          ErrorCode::kTruncated, "aoStream::Read", cut},
         {"length above the chain", [&] { Root("long")->Seek(0, 1); }, ErrorCode::kContradiction,
          "aoStream::Seek", SlotOffset(11)},
         {"seek behind the end", [&] { Root("a")->Seek(500, 0); }, ErrorCode::kBehindEnd,
          "aoStream::Seek"},
         {"copy of it",
          [&] {
            std::uint8_t* buffer = nullptr;
            Root("long")->CopyStreamToBuffer(buffer);
          },
          ErrorCode::kContradiction, "aoStream::CopyStreamToBuffer", SlotOffset(11)},
         {"child record",
          [&] {
            PatchFile32(path, childSlot, 0);
            std::vector<std::string> names;
            Root("f")->EnumStreams(names);
          },
          ErrorCode::kBadMagic, "aoStream::EnumStreams", childSlot},
         {"directory", [&] { PatchFile32(path, 32 + 8, 32), Open(); }, ErrorCode::kCycle,
          "aoStorage::Open", 32},
         {"directory cut", [&] { std::filesystem::resize_file(path, 5000), Open(); },
          ErrorCode::kTruncated, "aoStorage::Open", 32},
         {"header", [&] { std::filesystem::resize_file(path, 31), Open(); },
          ErrorCode::kNotAStorage, "aoStorage::Open", 0}});
}

// Those whose result does not show that something failed, and the plain no.
TEST_F(Reasons, AreSetAlsoWhereTheResultDoesNotTell) {
  const Stream a = Root("a"), f = Root("f"), locked(f->OpenStream("x", kReadFlags | kExclusive));
  aoStream2 memory;
  const Stream damaged = Root("noMagic");
  CAoStreamFile file(damaged.get()), none;
  std::int32_t number = 0;
  std::string text;
  std::int32_t size = 0;
  tag_aoStream header;
  tag_aoStreamOffset offset;
  StreamCookie end = -1;
  std::uint32_t cookie = 84;
  CCompStgFile facade;
  CPathLoader loader;
  CFile& base = none;
  std::filesystem::create_directory(dir.File("folder"));
  const std::string folderPath = dir.File("folder");
  storage->EnableSorting(1, 0);
  Check({
      {"value into damage", [&] { *Root("noMagic") << 1; }, ErrorCode::kBadMagic,
       "aoStream::operator<<", noMagic},
      {"value behind the end", [&] { a->Seek(8, 0), *a >> number; }, ErrorCode::kBehindEnd,
       "aoStream::operator>>"},
      {"string behind the end", [&] { a->Seek(0, 0), *a >> text; }, ErrorCode::kBehindEnd,
       "aoStream::operator>>"},
      {"short entry", [&] { EXPECT_EQ(Root("f")->GetEntry("x", 7), 7); }, ErrorCode::kBehindEnd,
       "aoStream::GetEntry"},
      {"entry into damage", [&] { EXPECT_EQ(storage->SetEntry("noMagic", 1), 1); },
       ErrorCode::kBadMagic, "aoStorage::SetEntry", noMagic},
      {"absent entry", [&] { storage->GetEntry("none", 1); }, ErrorCode::kNotFound,
       "aoStorage::GetEntry"},
      {"absent fast entry", [&] { storage->GetEntryFast("none", 1); }, ErrorCode::kNotFound,
       "aoStorage::GetEntryFast"},
      {"CFile", [&] { static_cast<CFile&>(file).Write("x", 1); }, ErrorCode::kBadMagic,
       "CAoStreamFile::Write", noMagic},
      {"no stream", [&] { none.Write("x", 1); }, ErrorCode::kNotOpen, "CAoStreamFile::Write"},
      {"not a file", [&] { base.CFile::SetLength(1); }, ErrorCode::kNotOpen, "CFile::SetLength"},
      {"not a file", [&] { base.CFile::Duplicate(); }, ErrorCode::kNotOpen, "CFile::Duplicate"},
      {"not a file", [&] { base.CFile::Read(out.data(), 1); }, ErrorCode::kNotOpen, "CFile::Read"},
      {"not a file", [&] { base.CFile::Write("x", 1); }, ErrorCode::kNotOpen, "CFile::Write"},
      {"not a file", [&] { base.CFile::LockRange(0, 1); }, ErrorCode::kNotOpen, "CFile::LockRange"},
      {"not a file", [&] { base.CFile::UnlockRange(0, 1); }, ErrorCode::kNotOpen,
       "CFile::UnlockRange"},
      {"not a file", [&] { base.CFile::GetBufferPtr(0, 1, nullptr, nullptr); }, ErrorCode::kNotOpen,
       "CFile::GetBufferPtr"},
      {"no word", [&] { EXPECT_EQ(HashLoadHashWord(nullptr), 0U); }, ErrorCode::kBadArgument,
       "HashLoadHashWord"},
      {"no place", [&] { HashStoreHashWord(nullptr, 1); }, ErrorCode::kBadArgument,
       "HashStoreHashWord"},
      {"no record", [&] { EXPECT_EQ(FormHashIndexDword(nullptr, 1), 0U); }, ErrorCode::kBadArgument,
       "FormHashIndexDword"},
      {"no path", [&] { EXPECT_EQ(Inspection::Of(nullptr), nullptr); }, ErrorCode::kNameUnusable,
       "Inspection::Of"},
      {"memory as a stream", [&] { memory.aoStream::Read(out.data(), 1); }, ErrorCode::kWrongKind,
       "aoStream::Read"},
      {"memory as a stream", [&] { memory.aoStream::Write("x", 1); }, ErrorCode::kWrongKind,
       "aoStream::Write"},
      {"memory stream", [&] { memory.GetLength(); }, ErrorCode::kWrongKind, "aoStream::GetLength"},
      {"nothing to detach", [&] { memory.Detach(size); }, ErrorCode::kNotFound,
       "aoStream2::Detach"},
      {"clear", [&] { f->ClearFolder(); }, ErrorCode::kShared, "aoStream::ClearFolder"},
      {"clear a plain one", [&] { a->ClearFolder(); }, ErrorCode::kWrongKind,
       "aoStream::ClearFolder"},
      {"end of a walk", [&] { f->OpenStreamNext(cookie, kReadFlags); }, ErrorCode::kNotFound,
       "aoStream::OpenStreamNext"},
      {"end of a root walk", [&] { storage->OpenStreamNext(end, kReadFlags); },
       ErrorCode::kNotFound, "aoStorage::OpenStreamNext"},
      {"find", [&] { f->FindStream("none", header, offset); }, ErrorCode::kNotFound,
       "aoStream::FindStream"},
      {"find at the root", [&] { storage->FindRootStorage("none"); }, ErrorCode::kNotFound,
       "aoStorage::FindRootStorage"},
      {"registry", [&] { f->IsStreamOpen("none"); }, ErrorCode::kNotFound,
       "aoStream::IsStreamOpen"},
      {"loader", [&] { loader.GetStreamByPath(storage.get(), "f/none", 0, 0); },
       ErrorCode::kNotFound, "CPathLoader::GetStreamByPath"},
      {"facade", [&] { facade.Close(); }, ErrorCode::kNotOpen, "CCompStgFile::Close"},
      {"facade, no file", [&] { facade.Open(dir.File("none").c_str(), 1); }, ErrorCode::kNotFound,
       "CCompStgFile::Open", kNoFileOffset, ENOENT},
      {"static Remove", [&] { CCompStgFile::Remove(dir.File("none").c_str()); },
       ErrorCode::kNotFound, "CCompStgFile::Remove", kNoFileOffset, ENOENT},
      {"rebuild elsewhere", [&] { aoStorage::Recreate(storage.get(), folderPath.c_str()); },
       ErrorCode::kNotAFile, "aoStorage::Recreate"},
      {"rebuild given up",
       [&] {
         const Storage sound(aoStorage::Create(dir.File("sound").c_str(), kWriteFlags, 0));
         aoStorage::Recreate(sound.get(), dir.File("new").c_str(), [](const RebuildReport&) {
           aoStorage::Recreate("");  // an operation of its own
           EXPECT_EQ(LastError().code, ErrorCode::kNameUnusable);
           return false;
         });
       },
       ErrorCode::kCancelled, "aoStorage::Recreate"},
      {"progress that throws",
       [&] {
         const Storage sound(aoStorage::Create(dir.File("sound").c_str(), kWriteFlags, 0));
         const auto throws = [](const RebuildReport&) -> bool { throw std::bad_alloc(); };
         EXPECT_EQ(aoStorage::Recreate(sound.get(), dir.File("new").c_str(), throws), sound.get());
       },
       ErrorCode::kCancelled, "aoStorage::Recreate"},
      {"folder into a plain one", [&] { Root("f")->CopyFolder(a.get()); }, ErrorCode::kWrongKind,
       "aoStream::CopyFolder"},
      {"rename", [&] { a->Rename(""); }, ErrorCode::kNameUnusable, "aoStream::Rename"},
      {"not writable", [&] { Root("a", kReadFlags)->Erase(); }, ErrorCode::kNotWritable,
       "aoStream::Erase"},
      {"hash word", [&] { HashLoadHashWord(nullptr); }, ErrorCode::kBadArgument,
       "HashLoadHashWord"},
      {"lost place", [&] { a->Seek(500, 0), a->Read(out.data(), 1); }, ErrorCode::kOutOfStep,
       "aoStream::Read"},
  });
}

// Every operation of an object that has nothing to work on: its result, too.
TEST_F(Reasons, AreSetByEachOperationOfAnEmptyObject) {
  const Stream a = Root("a");
  aoStream2 memory;
  aoStream& s = memory;
  CCompStgFile c;
  std::uint32_t cookie = 4, count = 0;
  std::uint8_t* buffer = nullptr;
  tag_aoStream header;
  tag_aoStreamOffset offset;
  std::vector<std::string> names;
  aoStream* child = nullptr;
  tagSIZE size{};
  const std::pair<const char*, std::function<bool()>> onMemory[] = {
      {"Seek", [&] { return s.Seek(0, 0) == kFailed; }},
      {"Seek2", [&] { return s.Seek2(0, 0) == -1; }},
      {"SetLength", [&] { return !s.SetLength(0); }},
      {"Erase", [&] { return !s.Erase(); }},
      {"GoNext", [&] { return !s.GoNext(); }},
      {"Release", [&] { return !s.Release(); }},
      {"CopyStream", [&] { return !s.CopyStream(a.get()); }},
      {"CopyStreamToBuffer", [&] { return !s.CopyStreamToBuffer(buffer); }},
      {"FindStream", [&] { return !s.FindStream("x", header, offset); }},
      {"AddStreamHeader", [&] { return !s.AddStreamHeader("x", 0, header, offset); }},
      {"CreateStream", [&] { return !s.CreateStream("x", 0, kWriteFlags); }},
      {"OpenStream", [&] { return !s.OpenStream("x", kReadFlags); }},
      {"OpenOrCreateStream", [&] { return !s.OpenOrCreateStream("x", std::int32_t{0}); }},
      {"IsStreamOpen", [&] { return !s.IsStreamOpen("x"); }},
      {"OpenStreamFirst", [&] { return !s.OpenStreamFirst(cookie, kReadFlags); }},
      {"OpenStreamNext", [&] { return !s.OpenStreamNext(cookie, kReadFlags); }},
      {"EnumStreams", [&] { return s.EnumStreams(names), true; }},
      {"Rename", [&] { return !s.Rename("x"); }},
      {"Remove", [&] { return !s.Remove(); }},
      {"ClearFolder", [&] { return s.ClearFolder(), true; }},
      {"CopyFolder", [&] { return !s.CopyFolder(a.get()); }},
      {"GetEntry", [&] { return s.GetEntry("x", 1) == 1; }},
      {"GetEntry", [&] { return s.GetEntry("x", &size, nullptr) == &size; }},
      {"SetEntry", [&] { return !s.SetEntry("x", "y", 1); }},
      {"SetEntryEraseOld", [&] { return !s.SetEntryEraseOld("x", "y", 1); }},
      {"GetEntryErasedOld", [&] { return !s.GetEntryErasedOld("x", &buffer, &count); }},
      {"GetName", [&] { return *s.GetName() == 0; }},
  };
  EXPECT_FALSE(s.GetLength() || s.GetCurDataPos() || s.GetNumChildren() || s.IsFolder() ||
               s.GetDuration());
  for (const auto& [name, act] : onMemory) {
    Check({{name, [&tried = act] { EXPECT_TRUE(tried()); }, ErrorCode::kWrongKind,
            (std::string("aoStream::") + name).c_str()}});
  }
  const std::pair<const char*, std::function<bool()>> onClosed[] = {
      {"CloseStream", [&] { return !c.CloseStream(); }},
      {"CloseChildStream", [&] { return !c.CloseChildStream(); }},
      {"OpenGenericStream", [&] { return !c.OpenGenericStream("x"); }},
      {"OpenGenericStreams", [&] { return !c.OpenGenericStreams("x", "y"); }},
      {"OpenOrCreateGenericStream", [&] { return !c.OpenOrCreateGenericStream("x", 0, 0); }},
      {"GetStreamSize", [&] { return !c.GetStreamSize(); }},
      {"OpenNextGenericStream", [&] { return !c.OpenNextGenericStream(); }},
      {"OpenNextStream", [&] { return !c.OpenNextStream(); }},
      {"GetNextStreamName", [&] { return !c.GetNextStreamName(kReadFlags); }},
      {"GetStreamName", [&] { return !c.GetStreamName(); }},
      {"GetNextChildStreamName", [&] { return !c.GetNextChildStreamName(child); }},
      {"RemoveGenericStream", [&] { return !c.RemoveGenericStream(); }},
      {"RemoveGenericChildStream", [&] { return !c.RemoveGenericChildStream("x", "y"); }},
      {"GoToBeginningOfGenericStream", [&] { return !c.GoToBeginningOfGenericStream(); }},
      {"GoToEndOfGenericChildStream", [&] { return !c.GoToEndOfGenericChildStream(); }},
      {"WriteGenericStream", [&] { return !c.WriteGenericStream(out.data(), 1); }},
      {"WriteGenericChildStream",
       [&] { return !c.WriteGenericChildStream("x", out.data(), 1, 0, 0); }},
      {"WriteGenericChildOpenedStream",
       [&] { return !c.WriteGenericChildOpenedStream(out.data(), 1, 0); }},
      {"ReadGenericStream", [&] { return !c.ReadGenericStream(out.data(), 1); }},
      {"ReadGenericChildStream", [&] { return !c.ReadGenericChildStream(out.data(), 1); }},
      {"ReadTagSeekBack", [&] { return !c.ReadTagSeekBack(out.data(), 1); }},
      {"SeekForward", [&] { return !c.SeekForward(1); }},
  };
  for (const auto& [name, act] : onClosed) {
    Check({{name, [&tried = act] { EXPECT_TRUE(tried()); }, ErrorCode::kNotOpen,
            (std::string("CCompStgFile::") + name).c_str()}});
  }
}

// What was tried in vain and made good otherwise is no failure, nor is the end of a stream.
TEST_F(Reasons, OfSuccessAreWhatWasThereBefore) {
  const Stream f = Root("f");
  const std::function<bool()> rows[] = {
      [&] { return storage->SetEntry("new", 1) == 1; },
      [&] { return storage->SetEntryFast("fast", 1) == 1; },
      [&] { return Got(storage->OpenOrCreateStream("made", 0)); },
      [&] { return Got(storage->OpenOrCreateStreamFast("toEnd", 1)); },
      [&] { return Got(f->OpenOrCreateStream("made", std::int32_t{0})); },
      [&] { return CPathLoader().GetStreamByPath(storage.get(), "tree/er", 1, 1) != nullptr; },
      [&] { return Storage(aoStorage::Create(dir.File("1").c_str(), 0, 0)) != nullptr; },
      [&] { return Storage(aoStorage::OpenOrCreate(dir.File("2").c_str(), 4, 0)) != nullptr; },
      [&] { return CCompStgFile().Open(dir.File("3").c_str(), 2) == 1; },
      [&] {
        const Stream copied = MakeRoot("from");
        aoStream2 memory;
        return Append(*copied, Pattern(10)) && copied->Seek(0, 0) == 0 &&
               copied->CopyStream(&memory);
      },
      [&] { return Root("made")->Read(out.data(), 1) == 0; },
      [&] { return (*MakeRoot("text") << "text").GetLength() == 6; },
      [&] { return Root("a")->Read(out.data(), 500) == 10; },
      // The chain that the slot keeps is damaged: the folder begins another.
      [&] {
        Stream bad = Root("noMagic");
        return Remove(bad) && Got(storage->CreateStream("folder", kFolderKind, kWriteFlags));
      },
  };
  std::size_t number = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE(number++);
    ClearLastError();
    EXPECT_TRUE(row());
    EXPECT_EQ(LastError().code, ErrorCode::kNone) << LastError().operation << LastError().text;
    EXPECT_EQ(storage->RemoveStream("none"), false);
    const Error before = LastError();
    EXPECT_TRUE(Got(storage->OpenStream("f", kReadFlags)));
    EXPECT_EQ(std::memcmp(&before, &LastError(), sizeof before), 0);
  }
}

// A write that fails, and then the clean-up behind it for another reason.
TEST_F(Reasons, AreTheFirstCause) {
  const Stream stream = MakeRoot("new");
  Watch watch;
  std::size_t writes = 0;
  watch.BeforeEach([&](Call call, std::size_t) {
    if (call == Call::kWrite &&
        ++writes > 1)  // the block, the words that lead to it, their undoing
      watch.FailAt(1, Only(Call::kWrite), writes == 2 ? ENOSPC : EIO);
  });
  EXPECT_EQ(stream->Write("0123456789", 10), kFailed);
  EXPECT_EQ(writes, 3U);
  EXPECT_EQ(LastError().code, ErrorCode::kDiskFull);
  EXPECT_EQ(LastError().systemError, ENOSPC);
  EXPECT_EQ(LastError().fileOffset, SlotOffset(15) + 68);
  EXPECT_EQ(stream->Write("0123456789", 10), kFailed);
  EXPECT_EQ(LastError().systemError, EIO) << "the next operation's own";
}

TEST_F(Reasons, BelongToTheThread) {
  EXPECT_EQ(Root("none"), nullptr);
  ErrorCode atFirst = ErrorCode::kFull, then = ErrorCode::kFull;
  std::thread([&] {
    atFirst = LastError().code;
    EXPECT_EQ(aoStorage::Open("", 0, 0), nullptr);
    then = LastError().code;
  }).join();
  EXPECT_EQ(atFirst, ErrorCode::kNone);
  EXPECT_EQ(then, ErrorCode::kNameUnusable);
  EXPECT_EQ(LastError().code, ErrorCode::kNotFound);
}

TEST_F(Reasons, OfTheSystemKeepItsNumber) {
  const std::pair<int, ErrorCode> rows[] = {
      {EPERM, ErrorCode::kAccessDenied},   {EROFS, ErrorCode::kAccessDenied},
      {ETXTBSY, ErrorCode::kAccessDenied}, {EDQUOT, ErrorCode::kDiskFull},
      {ENXIO, ErrorCode::kNotAFile},       {ENODEV, ErrorCode::kNotAFile},
      {ENOMEM, ErrorCode::kNoMemory},      {EMFILE, ErrorCode::kInputOutput}};
  for (const auto& [number, code] : rows) {
    Watch watch;
    watch.FailAt(1, Only(Call::kOpen), number);
    EXPECT_EQ(Open(), nullptr);
    EXPECT_STREQ(ErrorName(LastError().code), ErrorName(code));
    EXPECT_EQ(LastError().systemError, number);
  }
}

TEST_F(Reasons, TakeNoMemory) {
  const Stream stream = Root("noMagic");
  const FailAllocation next(1);
  EXPECT_EQ(stream->Read(out.data(), 1), kFailed);
  EXPECT_STREQ(LastError().operation, "aoStream::Read");
  EXPECT_FALSE(next.Fired());
  EXPECT_EQ(Root("a"), nullptr);
  EXPECT_EQ(LastError().code, ErrorCode::kNoMemory);
}

TEST_F(Reasons, HaveNamesAndTextsOfTheirOwn) {
  std::set<std::string> names, texts;
  std::int32_t codes = 0;
  for (; std::strcmp(ErrorName(static_cast<ErrorCode>(codes)), "unknown") != 0; ++codes) {
    names.insert(ErrorName(static_cast<ErrorCode>(codes)));
    texts.insert(ErrorText(static_cast<ErrorCode>(codes)));
  }
  EXPECT_EQ(codes, static_cast<std::int32_t>(ErrorCode::kIncompleteMap) + 1);
  EXPECT_TRUE(names.size() == texts.size() && names.size() == static_cast<std::size_t>(codes));
  EXPECT_STREQ(ErrorName(ErrorCode::kIncompleteMap), "incomplete-map");
  EXPECT_STREQ(ErrorName(ErrorCode::kNotAStorage), "not-a-storage");
  EXPECT_STREQ(ErrorText(static_cast<ErrorCode>(-1)), "unknown error");
  EXPECT_TRUE(!IsDamage(ErrorCode::kNotAStorage) && !IsDamage(ErrorCode::kFull));
}

// --- Sync

TEST_F(Reasons, ASyncIsOneCall) {
  Watch watch;
  EXPECT_TRUE(storage->Sync());
  EXPECT_TRUE(watch.Count(Call::kSync) == 1 && watch.Total() == 1) << watch.Text();
  EXPECT_TRUE(Storage(aoStorage::Open(path.c_str(), kReadFlags, 0))->Sync()) << "for reading only";
}

TEST_F(Reasons, AfterAFailedSyncNothingIsWrittenUntilTheFileIsOpenedAnew) {
  Stream a = Root("a"), f = Root("f");
  {
    Watch watch;
    watch.FailAt(1, Only(Call::kSync), EIO);
    EXPECT_FALSE(storage->Sync());
    EXPECT_TRUE(LastError().code == ErrorCode::kInputOutput && LastError().systemError == EIO);
  }
  const Bytes before = File();
  const std::function<bool()> writes[] = {
      [&] { return storage->Sync(); },
      [&] { return a->Write("x", 1) != kFailed; },
      [&] { return a->SetLength(1) || a->Erase() || a->Rename("b") || Remove(a); },
      [&] { return Got(storage->CreateStream("n", kFolderKind, kWriteFlags)); },
      [&] { return Got(storage->CreateStreamFast("n", kWriteFlags)); },
      [&] { return Got(f->CreateStream("n", kPlainKind, kWriteFlags)); },
      [&] { return f->SetEntry("new", 1) != 0; },
      [&] { return f->SetEntry("x", 1) != 1; },  // told as ever
      [&] { return Remove(f); },
  };
  std::size_t number = 0;
  for (const auto& write : writes) {
    SCOPED_TRACE(number++);
    Watch watch;
    EXPECT_FALSE(write());
    EXPECT_EQ(LastError().code, ErrorCode::kSyncFailed);
    EXPECT_EQ(LastError().systemError, EIO);
    EXPECT_EQ(watch.Count(Call::kWrite) + watch.Count(Call::kSync), 0U);
  }
  EXPECT_EQ(File(), before);
  EXPECT_EQ(a->Seek(0, 0), 0U);
  EXPECT_EQ(a->Read(out.data(), 500), 10U);
  a.reset();
  f.reset();
  Reopen();
  EXPECT_TRUE(Append(*Root("a"), Pattern(5)) && storage->Sync());
  EXPECT_EQ(Raw("a").Value().size(), 15U);
}

}  // namespace
}  // namespace aostorage::testing
