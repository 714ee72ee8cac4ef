// Typed values on a stream and copies of whole streams.
#include "folder/storage_fixture.h"
#include "support/check_file.h"

namespace aostorage::testing {
namespace {

class ValuesAndCopies : public OneStorageTest {
 protected:
  void SetUp() override { storage = Create(); }
  Stream Make(const std::string& name, const Bytes& value) const {
    Stream stream = MakeRoot(name);
    if (!value.empty()) stream->Write(value.data(), static_cast<std::uint32_t>(value.size()));
    stream->Seek(0, 0);
    return stream;
  }
  // A stream whose bytes lie in blocks of 10.
  Stream MakeScattered(const std::string& name, const Bytes& value) const {
    Stream stream = Make(name, {});
    const Stream other = Make(name + "-other", {});
    for (std::size_t at = 0; at < value.size(); at += 10) {
      Append(*stream, Slice(value, at, 10));
      Append(*other, Bytes(1));
    }
    stream->Seek(0, 0);
    return stream;
  }
};

TEST_F(ValuesAndCopies, AreTheirBytesLittleEndian) {
  const Stream stream = Make("s", Pattern(100));
  *stream << std::uint16_t{0x1234} << std::int32_t{-2} << std::uint32_t{0x89ABCDEF}
          << std::int64_t{-0x0102030405060708} << 1.5 << std::string("a\0b", 3) << "xy"
          << "" << static_cast<const char*>(nullptr);
  Bytes expected{0x34, 0x12, 0xFE, 0xFF, 0xFF, 0xFF, 0xEF, 0xCD, 0xAB, 0x89, 0xF8, 0xF8, 0xF9,
                 0xFA, 0xFB, 0xFC, 0xFD, 0xFE, 0,    0,    0,    0,    0,    0,    0xF8, 0x3F,
                 3,    0,    'a',  0,    'b',  2,    0,    'x',  'y',  0,    0,    0,    0};
  const Bytes rest = Slice(Pattern(100), expected.size(), 100);
  expected.insert(expected.end(), rest.begin(), rest.end());
  EXPECT_EQ(Raw("s").Value(), expected) << "nothing ends the stream";

  std::uint16_t word = 0;
  std::int32_t number = 0;
  std::uint32_t natural = 0;
  std::int64_t large = 0;
  double real = 0;
  std::string text, second, third = "x", fourth = "x";
  stream->Seek(0, 0);
  *stream >> word >> number >> natural >> large >> real >> text >> second >> third >> fourth;
  EXPECT_TRUE(word == 0x1234 && number == -2 && natural == 0x89ABCDEF);
  EXPECT_EQ(large, -0x0102030405060708);
  EXPECT_EQ(real, 1.5);
  EXPECT_EQ(text, std::string("a\0b", 3));
  EXPECT_EQ(second + third + fourth, "xy");
  EXPECT_EQ(stream->GetCurDataPos(), 39U);
}

TEST_F(ValuesAndCopies, StringsKeepTheLow16BitsOfTheirLength) {
  for (const std::size_t size : {0U, 255U, 65535U, 65536U, 65537U}) {
    const Stream stream = Make(std::to_string(size), {});
    const std::string text(size, 's');
    *stream << text << std::uint16_t{0xABCD};
    EXPECT_EQ(stream->GetLength(), (size & 0xFFFF) + 4);
    stream->Seek(0, 0);
    std::string back = "x";
    std::uint16_t mark = 0;
    *stream >> back >> mark;
    EXPECT_EQ(back, text.substr(0, size & 0xFFFF));
    EXPECT_EQ(mark, 0xABCD);
  }
}

TEST_F(ValuesAndCopies, ShortReadsLeaveNumbersAndFillStrings) {
  std::int32_t number = 0x11223344;
  *Make("empty", {}) >> number;
  EXPECT_EQ(number, 0x11223344);
  std::string text = "old";
  *Make("one", {5}) >> text;
  EXPECT_EQ(text, "") << "its count word cannot be read";
  *Make("three", {5, 0, 'a'}) >> text;
  EXPECT_EQ(text, std::string("a\0\0\0\0", 5)) << "the promised length";
  const Stream damaged = Make("damaged", Pattern(20));
  PatchFile32(path, Raw("damaged").firstBlock, 0);
  damaged->Seek(0, 0);
  *damaged >> number >> text;
  EXPECT_EQ(number, 0x11223344);
  EXPECT_EQ(text, "");
}

TEST_F(ValuesAndCopies, EndInFailureWhereTheSourceHasTooLittle) {
  const Stream source = Make("source", Pattern(100)), empty = Make("empty", {});
  Stream target = Make("target", Pattern(50, 2));
  const Stream second = Root("source");
  const Bytes before = File();
  EXPECT_FALSE(source->CopyStream(nullptr));
  EXPECT_FALSE(source->CopyStream(source.get()));
  EXPECT_FALSE(source->CopyStream(second.get())) << "another object on the same stream";
  EXPECT_EQ(File(), before);
  EXPECT_FALSE(empty->CopyStream(target.get()));
  source->Seek(1, 0);
  EXPECT_FALSE(source->CopyStream(target.get())) << "not at the start";
  EXPECT_EQ(Raw("target").length, 0U);
  ASSERT_TRUE(source->SetLength(60));
  source->Seek(40, 0);
  EXPECT_TRUE(source->CopyStream(target.get())) << "the chain holds more than the length";
  EXPECT_EQ(Raw("target").Value(), Slice(Pattern(100), 40, 60));

  // Without the right to erase, the old bytes are written over all the same.
  target = Root("target", kReadFlags);
  source->Seek(0, 0);
  EXPECT_TRUE(source->CopyStream(target.get()));
  EXPECT_EQ(Raw("target").Value(), Slice(Pattern(100), 0, 60));
}

TEST_F(ValuesAndCopies, ToABufferGiveAllOrNothing) {
  std::uint8_t mark = 0;
  std::uint8_t* buffer = &mark;
  EXPECT_EQ(Make("empty", {})->CopyStreamToBuffer(buffer), 0U);
  EXPECT_EQ(buffer, nullptr);
  const Stream source = MakeScattered("source", Pattern(95));
  ASSERT_EQ(source->CopyStreamToBuffer(buffer), 95U);
  EXPECT_EQ(Bytes(buffer, buffer + 95), Pattern(95));
  aoStream::FreeBuffer(buffer);
  EXPECT_EQ(buffer, nullptr);
  aoStream::FreeBuffer(buffer);
  source->Seek(1, 0);
  buffer = &mark;
  EXPECT_EQ(source->CopyStreamToBuffer(buffer), 0U);
  EXPECT_EQ(buffer, nullptr);

  buffer = aoStream::AllocateBuffer(1000);
  EXPECT_EQ(Bytes(buffer, buffer + 1000), Bytes(1000));
  aoStream::FreeBuffer(buffer);

  // A length that nothing stands behind takes no memory to speak of and fails.
  PatchFile32(path, Raw("source").recordOffset + 68, 0xFFFFFFF0);
  buffer = &mark;
  EXPECT_EQ(Root("source")->CopyStreamToBuffer(buffer), 0U);
  EXPECT_EQ(buffer, nullptr);
}

// The file grew through another storage object since this one was opened.
TEST_F(ValuesAndCopies, ReachWhatAnotherStorageObjectAppended) {
  const Bytes value = Pattern(20000);
  MakeRoot("source");
  const Stream folder = MakeRoot("f", kFolderKind);
  {
    const Storage other = Open();
    ASSERT_TRUE(Append(*Stream(other->OpenStream("source", kWriteFlags)), value));
    const Stream otherFolder(other->OpenStream("f", kWriteFlags));
    ASSERT_EQ(otherFolder->SetEntryEraseOld("entry", value.data(), 20000), 20000);
  }
  std::uint8_t* buffer = nullptr;
  EXPECT_EQ(Root("source")->CopyStreamToBuffer(buffer), 20000U);
  aoStream::FreeBuffer(buffer);
  std::uint32_t size = 0;
  EXPECT_EQ(folder->GetEntryErasedOld("entry", &buffer, &size), 1);
  EXPECT_EQ(Bytes(buffer, buffer + size), value);
  aoStream::FreeBuffer(buffer);
}

}  // namespace
}  // namespace aostorage::testing
