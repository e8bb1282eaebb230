#include "recording/RecordingFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <csignal>

#include "recording/RecordingFiles.h"
#include "support/TempFile.h"
#include "support/TsBuilder.h"

namespace {

using namespace orvtest;
using orvhost::RecordingFile;
using orvhost::RecordingSpace;
using Status = orvhost::RecordingFile::Status;

class RecordingFileTest : public testing::Test {
protected:
    RecordingFileTest() : mFd(open(mTemp.path().c_str(), O_RDWR | O_CLOEXEC)) {}
    ~RecordingFileTest() override { close(mFd); }

    Status write(RecordingFile& file, size_t packets) {
        const Bytes bytes = TsBuilder().nulls(packets).build();
        return file.write(bytes.data(), packets);
    }

    int64_t sizeOnDisk() const {
        struct stat file {};
        fstat(mFd, &file);
        return file.st_size;
    }
    int64_t backedBytes() const {
        struct stat file {};
        fstat(mFd, &file);
        return file.st_blocks * 512;
    }

    TempFile mTemp{Bytes{}};
    const int mFd;
};

TEST_F(RecordingFileTest, StopsBeforeTheStorageIsFull) {
    struct statvfs storage {};
    ASSERT_EQ(fstatvfs(mFd, &storage), 0);
    const auto free = static_cast<int64_t>(storage.f_bavail * storage.f_frsize);
    ASSERT_GT(free, 64 << 20);
    const RecordingSpace tooMuch{1 << 20, free + (int64_t{1} << 30)};
    EXPECT_TRUE(orvhost::hasRoom("/tmp", {1 << 20, free / 2}));
    EXPECT_FALSE(orvhost::hasRoom("/tmp", tooMuch));
    EXPECT_FALSE(orvhost::hasRoom("/tmp/orvtest-none", {1 << 20, 1}));
    RecordingFile refused(mFd, tooMuch);
    EXPECT_EQ(write(refused, 1000), Status::Full);
    EXPECT_EQ(refused.finish(), Status::Ok);
    EXPECT_EQ(sizeOnDisk(), 0);

    RecordingFile file(mFd, {4 << 20, 1});
    EXPECT_EQ(write(file, 1000), Status::Ok);
    EXPECT_EQ(file.finish(), Status::Ok);
    EXPECT_EQ(sizeOnDisk(), 188'000);
    EXPECT_LT(backedBytes(), 512 << 10);  // what was reserved is given back
}

// The limit of a process stands for any storage that takes a part of a write.
TEST_F(RecordingFileTest, AWriteThatGoesHalfwayLeavesWholePackets) {
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const auto signalBefore = std::signal(SIGXFSZ, SIG_IGN);
    RecordingFile file(mFd, {1 << 20, 1});
    rlimit tight = before;
    tight.rlim_cur = 188 * 25 + 100;
    setrlimit(RLIMIT_FSIZE, &tight);
    const Status first = write(file, 10);
    const Status second = write(file, 20);
    const Status third = write(file, 1);
    const Status last = file.finish();
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, signalBefore);
    EXPECT_EQ(first, Status::Ok);
    EXPECT_EQ(second, Status::Full);
    EXPECT_EQ(third, Status::Full);  // a hundred bytes are no packet
    EXPECT_EQ(last, Status::Ok);
    EXPECT_EQ(file.sizeBytes(), 188 * 25);
    EXPECT_EQ(sizeOnDisk(), 188 * 25);
}

TEST_F(RecordingFileTest, WhatADeadWriterLeavesIsTrimmed) {
    RecordingFile file(mFd, {8 << 20, 1});
    ASSERT_EQ(write(file, 100), Status::Ok);
    const timespec then[] = {{1000, 0}, {2000, 0}};
    ASSERT_EQ(futimens(mFd, then), 0);
    EXPECT_EQ(orvhost::trimToPackets(mFd), 18'800);
    EXPECT_LT(backedBytes(), 256 << 10);
    struct stat status {};
    fstat(mFd, &status);
    EXPECT_EQ(status.st_mtime, 2000);
}

TEST_F(RecordingFileTest, SaysWhenItIsGoneOrRefused) {
    const int readOnly = open(mTemp.path().c_str(), O_RDONLY | O_CLOEXEC);
    RecordingFile refused(readOnly, {});
    EXPECT_EQ(write(refused, 1), Status::Failed);
    EXPECT_EQ(refused.sizeBytes(), 0);
    EXPECT_FALSE(refused.isGone());
    close(readOnly);

    RecordingFile file(mFd, {1 << 20, 1});
    EXPECT_EQ(write(file, 3), Status::Ok);
    unlink(mTemp.path().c_str());
    EXPECT_EQ(write(file, 3), Status::Failed);
    EXPECT_EQ(file.sync(), Status::Failed);
    EXPECT_TRUE(file.isGone());
}

TEST_F(RecordingFileTest, BlanksThePacketsOfOnePid) {
    TsBuilder builder;
    for (int i = 0; i < 10; ++i) {
        builder.packet(0x111, Bytes(184, 1)).packet(0x112, Bytes(184, 2));
    }
    RecordingFile file(mFd, {1 << 20, 1});
    ASSERT_EQ(file.write(builder.build().data(), 20), Status::Ok);
    file.blank(0x112, 188 * 11);
    file.blank(0x111, 188 * 20);  // nothing is there
    for (unsigned i = 0; i < 20; ++i) {
        uint8_t packet[188];
        ASSERT_EQ(pread(mFd, packet, 188, i * 188), 188);
        const unsigned pid = i % 2 == 0 ? 0x111 : i < 11 ? 0x112 : 0x1FFF;
        EXPECT_EQ(packet[0], 0x47);
        EXPECT_EQ((packet[1] & 0x1F) << 8 | packet[2], static_cast<int>(pid)) << i;
    }
}

}  // namespace
