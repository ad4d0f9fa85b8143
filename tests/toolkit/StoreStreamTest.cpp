#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <numeric>

#include "lorvale/toolkit/storage.h"
#include "tests/support/FailureText.h"
#include "tests/support/MemoryStoreStream.h"
#include "tests/support/TestSupport.h"

namespace brindle {
namespace {

using lorvale::testing::readFile;
using lorvale::testing::TemporaryFolder;
using lorvale::testing::writeFile;
using testing::failureOf;

/// Notes every write, so that a test sees in which pieces the bytes go down.
class NotingStream : public testing::MemoryStoreStream {
public:
    NotingStream() : MemoryStoreStream(std::make_shared<testing::Bytes>()) { Open(true); }
    void Write(std::uint32_t address, const std::uint8_t* bytes, std::uint32_t count) override {
        MemoryStoreStream::Write(address, bytes, count);
        note += std::to_string(address) + "+" + std::to_string(count) + " ";
    }
    std::string note;
};

TEST(IAStoreStream, WritesWholeBuffersAndFillsThemWithZeros) {
    NotingStream stream;
    const std::string text(32, 'o');
    stream.SetPosition(0, 32);
    stream.WriteBytes(text.data(), 32);
    stream.SetPosition(64, 32);
    EXPECT_EQ(stream.note, "0+32 ") << "the next position sends it down";
    stream.WriteBytes("sixteen letters.", 16);
    EXPECT_EQ(stream.GetPosition(), 80u);
    stream.Flush();
    EXPECT_EQ(stream.note, "0+32 64+32 ");
    std::uint8_t bytes[32];
    ASSERT_EQ(stream.Read(64, bytes, 32), 32u);
    EXPECT_EQ(std::string(bytes, bytes + 32), "sixteen letters." + std::string(16, '\0'));

    stream.note.clear();
    stream.SetPosition(8192, 8192);
    for (int i = 0; i < 4096; ++i) stream.WriteByte(1);
    EXPECT_EQ(stream.note, "");
    stream.WriteByte(2);
    EXPECT_EQ(stream.note, "8192+4096 ") << "the 4097th byte starts a second buffer";
}

TEST(IAStoreStream, ReadsNothingBehindTheBlockOrTheDevice) {
    NotingStream stream;
    std::vector<std::uint8_t> bytes(100);
    stream.Write(0, bytes.data(), 100);
    stream.SetPosition(0, 32);
    EXPECT_EQ(stream.Remaining(), 32u);
    stream.ReadBytes(bytes.data(), 30);
    EXPECT_EQ(failureOf([&] { stream.ReadUInt32(); }), "VSPB buffer position passed blockEnd");
    EXPECT_EQ(failureOf([&] { stream.ReadByte(); }), "VSPB buffer position passed blockEnd") << "and again";
    stream.SetPosition(64, 64);
    EXPECT_EQ(stream.Remaining(), 36u);
    stream.ReadBytes(bytes.data(), 36);
    EXPECT_EQ(failureOf([&] { stream.ReadByte(); }), "VSEo passed EOF");
    stream.SetPosition(0xFFFFFFF0, 0xFFFF);
    EXPECT_EQ(failureOf([&] { stream.ReadByte(); }), "VSEo passed EOF");
    stream.SetPosition(0, 0);
    EXPECT_EQ(failureOf([&] { stream.WriteByte(1); }), "VSPB not past the blockend");
}

/// What bytes, fields and buffers written in any mixture make is what single bytes would have made.
TEST(IAStoreStream, BulkAndSingleBytesAreTheSame) {
    std::vector<std::uint8_t> bytes(3 * IADiskBlockSize);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{1});
    const auto size = static_cast<std::uint32_t>(bytes.size());
    for (const std::uint32_t piece : {1u, 3u, 4u, 31u, 4095u, 4096u, 4097u, 12288u}) {
        NotingStream stream;
        stream.SetPosition(0, size);
        for (std::uint32_t at = 0; at < size; at += piece)
            stream.WriteBytes(bytes.data() + at, std::min(piece, size - at));
        stream.SetPosition(0, size);
        EXPECT_EQ(stream.note, "0+4096 4096+4096 8192+4096 ");
        for (std::uint32_t at = 0; at < size; ++at) ASSERT_EQ(stream.ReadByte(), bytes[at]);
        stream.SetPosition(0, size);
        std::vector<std::uint8_t> back(size);
        for (std::uint32_t at = 0; at < size; at += piece)
            stream.ReadBytes(back.data() + at, std::min(piece, size - at));
        EXPECT_EQ(back, bytes);
        stream.SetPosition(0, size);
        stream.ReadBytes(back.data(), 4095);
        EXPECT_EQ(stream.ReadUInt32(), 0x00010203u) << "across two buffers, highest byte first";
        stream.SetPosition(0, 2 * IADiskBlockSize);
        stream.WriteBytes(bytes.data(), 4094);
        for (int i = 0; i < 3; ++i) stream.WriteUInt32(0x04050607);
        stream.SetPosition(4094, 12);
        for (int i = 0; i < 12; ++i) ASSERT_EQ(stream.ReadByte(), 4 + i % 4);
    }
}

TEST(UFSStoreStream, FillsAGapWithZeros) {
    const TemporaryFolder folder;
    const auto path = folder / "store";
    UFSStoreStream stream(path.c_str());
    EXPECT_EQ(failureOf([&] { stream.GetEOF(); }), "VSEr file not open");
    stream.Initialize();
    stream.Open(true);
    const std::uint8_t one = 1;
    stream.Write(70'000, &one, 1);
    EXPECT_EQ(stream.GetEOF(), 70'001u);
    EXPECT_EQ(readFile(path), std::string(70'000, '\0') + '\1');
    stream.SetEOF(10);
    EXPECT_EQ(stream.GetEOF(), 10u);
    stream.Write(12, &one, 1);
    EXPECT_EQ(readFile(path), std::string(12, '\0') + '\1');
}

TEST(UFSStoreStream, NamesItsFailures) {
    const TemporaryFolder folder;
    const auto inNoFolder = folder / "no/store";
    UFSStoreStream lost(inNoFolder.c_str());
    EXPECT_EQ(failureOf([&] { lost.Initialize(); }), "VSEr unable to initialize the file");
    EXPECT_EQ(failureOf([&] { lost.Open(true); }), "VSEr  unable to open file");

    const auto path = folder / "store";
    writeFile(path, "bytes");
    UFSStoreStream readOnly(path.c_str());
    readOnly.Open(false);
    EXPECT_EQ(failureOf([&] { readOnly.Open(false); }), "VSEr unable open non existing file name");
    const std::uint8_t byte = 0;
    EXPECT_EQ(failureOf([&] { readOnly.Write(0, &byte, 1); }), "VSEr file not writable");
    EXPECT_EQ(failureOf([&] { readOnly.SetEOF(0); }), "VSEr file not writable");
    EXPECT_EQ(failureOf([&] { readOnly.Flush(); }), "VSEr file not writable");

    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    UFSStoreStream pipe("pipe", ::fdopen(ends[1], "wb"), true, true);  // a thing without places
    ::close(ends[0]);
    EXPECT_EQ(failureOf([&] { pipe.GetEOF(); }), "VSEr unable to seek to end");
    EXPECT_EQ(failureOf([&] { pipe.Write(0, &byte, 1); }), "VSEr unable to seek to current address");
    std::uint8_t read;
    EXPECT_EQ(failureOf([&] { pipe.Read(0, &read, 1); }), "VSEr unable to reach address");
}

/// The system refuses to let the file grow; what it refused must never be called safe.
TEST(UFSStoreStream, DoesNotForgetARefusedWrite) {
    const TemporaryFolder folder;
    const auto path = folder / "store";
    UFSStoreStream stream(path.c_str());
    stream.Initialize();
    stream.Open(true);
    const auto clone = stream.Clone();
    const std::vector<std::uint8_t> bytes(4096, 7);
    stream.Write(0, bytes.data(), 4096);
    EXPECT_EQ(failureOf([&] { stream.Flush(); }), "");

    rlimit old{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old), 0);
    const rlimit small{4096, old.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    EXPECT_EQ(failureOf([&] { clone->Write(4096, bytes.data(), 4096); }), "") << "a write says nothing";
    EXPECT_EQ(failureOf([&] { stream.Write(9000, bytes.data(), 1); }), "VSFu unable to extend store is full");
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &old), 0);
    std::signal(SIGXFSZ, SIG_DFL);

    EXPECT_EQ(failureOf([&] { stream.Flush(); }), "VSEr unable to flush the file");
    EXPECT_EQ(failureOf([&] { stream.Sync(); }), "VSEr unable to flush the file");
    EXPECT_EQ(failureOf([&] { clone->Flush(); }), "VSEr unable to flush the file");
}

}  // namespace
}  // namespace brindle
