#include <binder/Parcel.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "binder/ParcelAccess.h"
#include "platform/binder/RelayBinder.h"

namespace android {
namespace {

using orvhost::ParcelAccess;
using orvtest::RelayBinder;

// Words of 4 bytes as they read on paper, blanks between: the bytes in order.
std::string words(const Parcel& parcel) {
    static const char DIGITS[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < parcel.dataSize(); ++i) {
        if (i > 0 && i % 4 == 0) {
            text += ' ';
        }
        text += DIGITS[parcel.data()[i] >> 4];
        text += DIGITS[parcel.data()[i] & 15];
    }
    return text;
}

std::vector<uint8_t> wordsOf(std::initializer_list<uint32_t> values) {
    std::vector<uint8_t> bytes(values.size() * 4);
    if (!bytes.empty()) {
        memcpy(bytes.data(), std::data(values), bytes.size());
    }
    return bytes;
}

int openFile() {
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

TEST(Parcel, EveryValueHasItsBytes) {
    const sp<IBinder> local = new BBinder;
    const sp<IBinder> proxy = new RelayBinder(local);
    const struct {
        const char* name;
        std::function<status_t(Parcel&)> write;
        const char* bytes;
        size_t objects;
    } cases[] = {
        {"token", [](Parcel& p) { return p.writeInterfaceToken(String16("OrvPlayer")); },
         "00000000 ffffffff 09000000 4f007200 76005000 6c006100 79006500 72000000", 0},
        {"nothing", [](Parcel& p) { return p.write(nullptr, 0); }, "", 0},
        {"null string", [](Parcel& p) { return p.writeString16(nullptr, 7); }, "ffffffff", 0},
        {"empty string", [](Parcel& p) { return p.writeString16(String16()); }, "00000000 00000000",
         0},
        {"odd string", [](Parcel& p) { return p.writeString16(String16("abc")); },
         "03000000 61006200 63000000", 0},
        {"even string", [](Parcel& p) { return p.writeString16(String16("ab")); },
         "02000000 61006200 00000000", 0},
        {"caption",
         [](Parcel& p) {
             p.writeInt32(5);
             p.writeInt32(5);
             return p.write("12345", 5);
         },
         "05000000 05000000 31323334 35000000", 0},
        {"int64 after int32",
         [](Parcel& p) {
             p.writeUint32(0xfedcba98);
             return p.writeInt64(-2);
         },
         "98badcfe feffffff ffffffff", 0},
        {"null binder", [](Parcel& p) { return p.writeStrongBinder(nullptr); },
         "852a6273 00000000 00000000 00000000 00000000 00000000", 0},
        {"binder", [&](Parcel& p) { return p.writeStrongBinder(local); },
         "852a6273 00000000 00000000 00000000 00000000 00000000", 1},
        {"proxy", [&](Parcel& p) { return p.writeStrongBinder(proxy); },
         "852a6873 00000000 00000000 00000000 00000000 00000000", 1},
        {"descriptor", [](Parcel& p) { return p.writeDupFileDescriptor(0); },
         "852a6466 00000000 00000000 00000000 00000000 00000000", 1},
        {"padding over old bytes",
         [](Parcel& p) {
             p.writeUint32(0xffffffff);
             p.setDataPosition(0);
             return p.write("x", 1);
         },
         "78000000", 0},
        {"after data of odd length",
         [](Parcel& p) {
             p.setData(reinterpret_cast<const uint8_t*>("12345"), 5);
             p.setDataPosition(5);
             return p.writeInt32(7);
         },
         "31323334 35000000 07000000", 0},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        Parcel parcel;
        EXPECT_EQ(each.write(parcel), OK);
        EXPECT_EQ(words(parcel), each.bytes);
        EXPECT_EQ(parcel.objectsCount(), each.objects);
        EXPECT_EQ(parcel.dataPosition(), parcel.dataSize());
    }
}

TEST(Parcel, ValuesComeBackInOrder) {
    const sp<IBinder> local = new BBinder;
    Parcel parcel;
    parcel.writeInterfaceToken(String16("OrvPlayer"));
    parcel.writeInt64(-5000000000);
    parcel.writeString16(nullptr, 0);
    parcel.writeString16(String16("uri"));
    parcel.writeStrongBinder(nullptr);
    parcel.writeStrongBinder(local);
    parcel.writeDupFileDescriptor(0);
    parcel.setDataPosition(0);
    EXPECT_FALSE(parcel.enforceInterface(String16("OrvPlayerClient")));
    EXPECT_TRUE(parcel.enforceInterface(String16("OrvPlayer")));
    EXPECT_EQ(parcel.readInt64(), -5000000000);
    String16 text;
    EXPECT_EQ(parcel.readString16(&text), UNEXPECTED_NULL);
    EXPECT_EQ(parcel.readString16(), String16("uri"));
    sp<IBinder> binder = local;
    EXPECT_EQ(parcel.readStrongBinder(&binder), OK);
    EXPECT_EQ(binder, nullptr);
    EXPECT_EQ(parcel.readStrongBinder(), local);
    const int fd = parcel.readFileDescriptor();
    EXPECT_GE(fd, 0);
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(parcel.dataAvail(), 0u);
}

// Every kind of read, of everything that is not there: an error or nothing, and the place stays.
TEST(Parcel, HostileReadsFailWhereTheyStand) {
    using Bytes = std::vector<uint8_t>;
    const Bytes looksLikeBinder = wordsOf({ParcelAccess::BINDER, 0, 1, 0, 0, 0});
    const Bytes looksLikeHandle = wordsOf({ParcelAccess::HANDLE, 0, 1, 0, 0, 0});
    const Bytes looksLikeFile = wordsOf({ParcelAccess::DESCRIPTOR, 0, 1, 0, 0, 0});
    const auto missing = [](bool found) { return found ? OK : NOT_ENOUGH_DATA; };
    const auto int32 = [](const Parcel& p, int32_t v = 0) { return p.readInt32(&v); };
    const auto int64 = [](const Parcel& p, int64_t v = 0) { return p.readInt64(&v); };
    const auto fiveBytes = [=](const Parcel& p) { return missing(p.readInplace(5)); };
    const auto everything = [=](const Parcel& p) { return missing(p.readInplace(SIZE_MAX)); };
    const auto token = [=](const Parcel& p) { return missing(p.enforceInterface(String16())); };
    const auto string = [](const Parcel& p) {
        String16 text("untouched");
        size_t length = 1;
        EXPECT_EQ(p.readString16Inplace(&length), nullptr);
        EXPECT_EQ(length, 0u);
        const status_t status = p.readString16(&text);
        EXPECT_EQ(text, String16("untouched"));
        return status;
    };
    const auto binder = [](const Parcel& p) {
        sp<IBinder> found;
        return p.readStrongBinder(&found);
    };
    const auto file = [](const Parcel& p) { return p.readFileDescriptor(); };
    const struct {
        const char* name;
        Bytes bytes;
        std::function<status_t(const Parcel&)> read;
        status_t status;
    } cases[] = {
        {"int32 of nothing", {}, int32, NOT_ENOUGH_DATA},
        {"int32 of 3 bytes", {1, 2, 3}, int32, NOT_ENOUGH_DATA},
        {"int64 of 4 bytes", {1, 2, 3, 4}, int64, NOT_ENOUGH_DATA},
        {"bytes without their padding", {1, 2, 3, 4, 5}, fiveBytes, NOT_ENOUGH_DATA},
        {"length that wraps when padded", wordsOf({1}), everything, NOT_ENOUGH_DATA},
        {"string of -2", wordsOf({0xfffffffe, 0}), string, NOT_ENOUGH_DATA},
        {"string of the lowest", wordsOf({0x80000000, 0}), string, NOT_ENOUGH_DATA},
        {"string of the highest", wordsOf({0x7fffffff, 0}), string, NOT_ENOUGH_DATA},
        {"string whose bytes wrap 32 bits", wordsOf({0x80000001, 0}), string, NOT_ENOUGH_DATA},
        {"string without room for its end", wordsOf({2, 0x00610061}), string, NOT_ENOUGH_DATA},
        {"string without its end", wordsOf({1, 0x00610061}), string, NOT_ENOUGH_DATA},
        {"token without work source", wordsOf({0}), token, NOT_ENOUGH_DATA},
        {"token of null", wordsOf({0, 0, 0xffffffff}), token, NOT_ENOUGH_DATA},
        {"binder of 20 bytes", wordsOf({ParcelAccess::BINDER, 0, 0, 0, 0}), binder,
         NOT_ENOUGH_DATA},
        {"binder that is only bytes", looksLikeBinder, binder, BAD_TYPE},
        {"handle that is only bytes", looksLikeHandle, binder, BAD_TYPE},
        {"descriptor as binder", looksLikeFile, binder, BAD_TYPE},
        {"descriptor that is only bytes", looksLikeFile, file, BAD_TYPE},
        {"descriptor of nothing", {}, file, BAD_TYPE},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        Parcel parcel;
        ASSERT_EQ(parcel.setData(each.bytes.data(), each.bytes.size()), OK);
        EXPECT_EQ(each.read(parcel), each.status);
        EXPECT_EQ(parcel.dataPosition(), 0u);
        parcel.setDataPosition(SIZE_MAX);
        EXPECT_EQ(parcel.dataPosition(), each.bytes.size());
        EXPECT_LT(each.read(parcel), 0);
    }
}

// Values are read where they are aligned, however long the data were that came from outside.
TEST(Parcel, APositionIsAlignedOrTheEnd) {
    Parcel parcel;
    parcel.setData(reinterpret_cast<const uint8_t*>("12345"), 5);
    parcel.setDataPosition(1);
    EXPECT_EQ(parcel.dataPosition(), 4u);
    parcel.setDataPosition(5);
    EXPECT_EQ(parcel.dataPosition(), 5u);
    EXPECT_EQ(parcel.setDataSize(20), OK);
    EXPECT_EQ(parcel.dataPosition(), 8u);
    EXPECT_EQ(parcel.readString16(), String16());
    EXPECT_EQ(parcel.setDataSize(7), OK);
    EXPECT_EQ(parcel.dataPosition(), 7u);
}

TEST(Parcel, AnObjectIsReadAsWhatItIsAndWhereItStands) {
    Parcel parcel;
    parcel.writeStrongBinder(new BBinder);
    parcel.writeDupFileDescriptor(0);
    parcel.setDataPosition(0);
    EXPECT_EQ(parcel.readFileDescriptor(), BAD_TYPE);
    parcel.setDataPosition(4);
    EXPECT_EQ(parcel.readStrongBinder(), nullptr);
    parcel.setDataPosition(24);
    EXPECT_EQ(parcel.readStrongBinder(), nullptr);
    parcel.setDataPosition(20);
    parcel.writeInt32(0);  // ends the binder before it, and touches nothing else
    EXPECT_EQ(parcel.objectsCount(), 1u);
    EXPECT_GE(parcel.readFileDescriptor(), 0);
}

// What a parcel owns it closes once, whatever becomes of the place; the rest it leaves alone.
TEST(Parcel, DescriptorsAreClosedByTheirOwner) {
    const struct {
        const char* name;
        std::function<void(Parcel&)> act;
    } cases[] = {
        {"freed", [](Parcel& p) { p.freeData(); }},
        {"replaced", [](Parcel& p) { p.setData(nullptr, 0); }},
        {"cut", [](Parcel& p) { p.setDataSize(27); }},
        {"written over at its end",
         [](Parcel& p) {
             p.setDataPosition(24);
             p.writeInt32(1);
         }},
        {"written over before it",
         [](Parcel& p) {
             p.setDataPosition(0);
             p.write("12345678", 8);
         }},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        const int owned = openFile();
        const int lent = openFile();
        {
            Parcel parcel;
            parcel.writeInt32(0);
            parcel.writeFileDescriptor(owned, true);
            each.act(parcel);
            EXPECT_FALSE(isOpen(owned));
            EXPECT_EQ(parcel.objectsCount(), 0u);
            parcel.writeFileDescriptor(lent, false);
        }
        EXPECT_TRUE(isOpen(lent));
        close(lent);
    }
}

TEST(Parcel, HasABoundOnItsSize) {
    constexpr size_t MAX = ParcelAccess::MAX_BYTES;
    Parcel parcel;
    EXPECT_EQ(parcel.writeInplace(SIZE_MAX), nullptr);
    EXPECT_EQ(parcel.writeInplace(MAX + 1), nullptr);
    EXPECT_EQ(parcel.setDataSize(MAX + 1), NO_MEMORY);
    EXPECT_EQ(parcel.setData(nullptr, MAX + 1), NO_MEMORY);
    EXPECT_EQ(parcel.writeString16(u"", SIZE_MAX / 2 + 1), NO_MEMORY);
    EXPECT_EQ(parcel.dataSize(), 0u);
    ASSERT_NE(parcel.writeInplace(MAX), nullptr);
    EXPECT_EQ(parcel.writeInt32(1), NO_MEMORY);
    const int owned = openFile();
    EXPECT_EQ(parcel.writeFileDescriptor(owned, true), NO_MEMORY);
    EXPECT_FALSE(isOpen(owned));
    EXPECT_EQ(parcel.dataSize(), MAX);
    EXPECT_EQ(parcel.writeFileDescriptor(-1), BAD_VALUE);
}

TEST(ParcelAccess, RefusesWholeWhatItsOffsetsDoNotFit) {
    std::vector<uint8_t> bytes(4 + 3 * 24);
    ParcelAccess::put(bytes.data(), 4, ParcelAccess::BINDER, 11);
    ParcelAccess::put(bytes.data(), 28, ParcelAccess::HANDLE, 0x123456789);
    ParcelAccess::put(bytes.data(), 52, ParcelAccess::DESCRIPTOR, 33);
    const struct {
        const char* name;
        std::vector<uint32_t> offsets;
        bool fits;
    } cases[] = {
        {"none", {}, true},
        {"all", {4, 28, 52}, true},
        {"one unlisted", {4, 52}, true},
        {"twice", {4, 4}, false},
        {"descending", {28, 4}, false},
        {"overlapping", {4, 16}, false},
        {"not aligned", {5}, false},
        {"no type", {0}, false},
        {"one byte beyond", {56}, false},
        {"wraps round", {0xfffffffc}, false},
        {"more than have room", {4, 28, 52, 76}, false},
    };
    std::vector<ParcelAccess::Received> objects;
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        EXPECT_EQ(ParcelAccess::inspect(bytes.data(), bytes.size(), each.offsets.data(),
                                        each.offsets.size(), &objects),
                  each.fits);
        EXPECT_EQ(objects.size(), each.fits ? each.offsets.size() : 0);
    }
    ASSERT_TRUE(
        ParcelAccess::inspect(bytes.data(), bytes.size(), cases[1].offsets.data(), 3, &objects));
    EXPECT_EQ(objects[1].type, ParcelAccess::HANDLE);
    EXPECT_EQ(objects[1].value, 0x123456789u);
    EXPECT_FALSE(
        ParcelAccess::inspect(bytes.data(), ParcelAccess::MAX_BYTES + 1, nullptr, 0, &objects));
    EXPECT_FALSE(ParcelAccess::inspect(bytes.data(), 20, cases[1].offsets.data(), 1, &objects));
}

// The way of a parcel through a message, as the transports go it.
TEST(ParcelAccess, AMessageBecomesTheSameParcel) {
    const sp<IBinder> local = new BBinder;
    const sp<IBinder> proxy = new RelayBinder(local);
    Parcel sent;
    sent.writeInt32(7);
    sent.writeStrongBinder(local);
    sent.writeStrongBinder(nullptr);
    sent.writeDupFileDescriptor(0);

    std::vector<uint8_t> bytes(sent.data(), sent.data() + sent.dataSize());
    std::vector<uint32_t> offsets;
    for (const auto& object : ParcelAccess::objects(sent)) {
        ParcelAccess::put(bytes.data(), object.offset, object.type, 90 + offsets.size());
        offsets.push_back(static_cast<uint32_t>(object.offset));
    }
    EXPECT_EQ(offsets, (std::vector<uint32_t>{4, 52}));

    for (const bool complete : {true, false}) {
        std::vector<ParcelAccess::Received> objects;
        ASSERT_TRUE(ParcelAccess::inspect(bytes.data(), bytes.size(), offsets.data(),
                                          offsets.size(), &objects));
        EXPECT_EQ(objects[1].value, 91u);
        const int fd = openFile();
        objects[1].fd = fd;
        if (complete) {
            objects[0].binder = proxy;
        }
        Parcel parcel;
        EXPECT_EQ(ParcelAccess::build(bytes.data(), bytes.size(), std::move(objects), &parcel),
                  complete ? OK : BAD_VALUE);
        if (complete) {
            EXPECT_EQ(parcel.readInt32(), 7);
            EXPECT_EQ(parcel.readStrongBinder(), proxy);
            EXPECT_EQ(parcel.readStrongBinder(), nullptr);
            EXPECT_EQ(parcel.readFileDescriptor(), fd);
            // No number of the message stays behind.
            EXPECT_EQ(words(parcel).find("5a000000"), std::string::npos);
            EXPECT_EQ(ParcelAccess::objects(parcel)[0].type, ParcelAccess::HANDLE);
        } else {
            EXPECT_EQ(parcel.dataSize(), 0u);
        }
        parcel.freeData();
        EXPECT_FALSE(isOpen(fd));
    }
}

}  // namespace
}  // namespace android
