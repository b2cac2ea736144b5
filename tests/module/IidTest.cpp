// Identifier derivation: the worked examples and the properties every module relies on.
#include <gtest/gtest.h>

#include <string>

#include "module/Iid.h"

namespace {

IID Bytes(std::initializer_list<int> leading) {
    IID iid{};
    int i = 0;
    for (int b : leading) iid.bytes[i++] = static_cast<unsigned char>(b);
    return iid;
}

TEST(Iid, WorkedExamples) {
    const struct { const char* name; IID expected; } rows[] = {
        {"IString", Bytes({0x69, 0x52, 0x99, 0xDC, 0x01})},
        {"istring", Bytes({0x69, 0x52, 0x99, 0xDC, 0x01})},
        {"IRunningObjectTableEx", Bytes({0x49, 0x56, 0xE7, 0x92, 0x3B, 0x4F, 0xA8, 0x32, 0x28, 0x0D, 0x82, 0x95, 0x82, 0x01})},
        {"IUIPlotScale2", Bytes({0xA9, 0x26, 0xC8, 0x1E, 0x9D, 0x23, 0xB0, 0xE2, 0x01})},
        {"_IWorkspaceEvents", Bytes({0x3B, 0xDD, 0x27, 0xD7, 0x84, 0x61, 0x94, 0x62, 0x8B, 0xA3, 0x13})},
        // Only 25 characters count.
        {"ICreatableSimpleCollection", Bytes({0x69, 0xC8, 0x12, 0x68, 0x10, 0xAC, 0xCC, 0xD4, 0x20, 0x2B, 0xE3, 0x31, 0x56, 0x06, 0x4D, 0x0F})},
        // The code of '4' has six bits: its top bit is the lowest bit of the next field, or bit 125.
        {"A4B", Bytes({0x01, 0x0C})},
        {"", IID{}},
    };
    for (const auto& row : rows) EXPECT_EQ(__IIDOfc(row.name), row.expected) << row.name;
    EXPECT_EQ(__IIDOfc("________________________4").bytes[15], 0x20);
    EXPECT_EQ(__IIDOfc("I5"), __IIDOfc("I9")) << "only the digits 0 to 4 have codes of their own";
}

TEST(Iid, FixedConstants) {
    const IID unknown = {{0, 0, 0, 0, 0, 0, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    EXPECT_EQ(IID_IUnknown, unknown);
    EXPECT_EQ(IID_NULL, IID{});
}

}  // namespace
