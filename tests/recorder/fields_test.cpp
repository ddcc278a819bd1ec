#include "recorder/records/fields.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

#include "recorder/records/cruise_line.h"
#include "recorder/records/layouts.h"
#include "recorder/support/failure.h"

namespace lenswire::recorder {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

struct Sample {
    uint8_t small;
    int8_t sign;
    uint8_t gap[2];
    uint16_t middle;
    int16_t degrees;
    uint32_t large;
    char text[6];
    uint8_t raw[3];
    uint8_t tail[3];
    uint8_t ip[4];
};
static_assert(sizeof(Sample) == 28);

constexpr Field kSample[] = {
    LENSWIRE_FIELD("small", Sample, small),   LENSWIRE_FIELD("sign", Sample, sign),
    LENSWIRE_FIELD("middle", Sample, middle), LENSWIRE_FIELD("degrees", Sample, degrees),
    LENSWIRE_FIELD("large", Sample, large),   LENSWIRE_FIELD("text", Sample, text),
    LENSWIRE_FIELD("raw", Sample, raw),       LENSWIRE_ADDRESS_FIELD("ip", Sample, ip),
};
const Layout kLayout = {kSample, sizeof(Sample)};

Bytes counting() {
    Bytes bytes(sizeof(Sample));
    std::iota(bytes.begin(), bytes.end(), uint8_t{0x41});
    return bytes;
}

std::string refusal(std::string_view assignment) {
    Bytes record = counting();
    const Bytes before = record;
    try {
        apply_assignment(fields_of(kLayout), assignment, record);
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), kBadInput);
        EXPECT_EQ(record, before) << "a refused value changes nothing";
        return failure.what();
    }
    return "accepted";
}

TEST(Fields, ShowEveryKindAndTheBytesBetween) {
    Bytes record = counting();
    record[1] = 0xFE;
    record[6] = 0x18;
    record[7] = 0xFC;
    record[15] = 0;
    EXPECT_EQ(record_text(kLayout, record),
              "small               65\n"
              "sign                -2\n"
              "bytes@2             4344\n"
              "middle              17989\n"
              "degrees             -1000\n"
              "large               1280002633\n"
              "text                MNO\n"
              "raw                 535455\n"
              "bytes@21            565758\n"
              "ip                  89.90.91.92\n");
    const auto json = record_json(kLayout, record);
    EXPECT_EQ(json["sign"], -2);
    EXPECT_EQ(json["bytes@21"], "565758");
}

TEST(Fields, ChangeNothingButTheirOwnBytes) {
    struct Case {
        const char* assignment;
        size_t offset;
        Bytes expected;
    };
    const Case cases[] = {
        {"small=255", 0, {0xFF}},
        {"sign=-128", 1, {0x80}},
        {"bytes@2=00fF", 2, {0x00, 0xFF}},
        {"middle=513", 4, {0x01, 0x02}},
        {"degrees=-2", 6, {0xFE, 0xFF}},
        {"large=4294967295", 8, {0xFF, 0xFF, 0xFF, 0xFF}},
        {"text=a=b", 12, {'a', '=', 'b', 0, 0, 0}},
        {"text=", 12, {0, 0, 0, 0, 0, 0}},
        {"text=sixsix", 12, {'s', 'i', 'x', 's', 'i', 'x'}},
        {"raw=010203", 18, {1, 2, 3}},
        {"ip=10.0.255.1", 24, {10, 0, 255, 1}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.assignment);
        Bytes record = counting(), expected = record;
        std::ranges::copy(c.expected, expected.begin() + static_cast<long>(c.offset));
        apply_assignment(fields_of(kLayout), c.assignment, record);
        EXPECT_EQ(record, expected);
    }
}

TEST(Fields, RefuseWhatDoesNotFit) {
    EXPECT_THAT(refusal("small=256"), HasSubstr("from 0 to 255"));
    EXPECT_THAT(refusal("small=-1"), HasSubstr("from 0 to 255"));
    EXPECT_THAT(refusal("sign=128"), HasSubstr("from -128 to 127"));
    EXPECT_THAT(refusal("large=4294967296"), HasSubstr("4294967295"));
    EXPECT_THAT(refusal("large=99999999999999999999"), HasSubstr("4294967295"));
    for (const char* text : {"small=", "small=1x", "small= 1", "small=0x1"})
        EXPECT_THAT(refusal(text), Not("accepted")) << text;
    EXPECT_THAT(refusal("text=seven77"), HasSubstr("6 characters"));
    EXPECT_THAT(refusal("raw=0102"), HasSubstr("6 hex digits"));
    EXPECT_THAT(refusal("raw=01020g"), HasSubstr("6 hex digits"));
    EXPECT_THAT(refusal("ip=1.2.3"), HasSubstr("IPv4 address"));
    EXPECT_THAT(refusal("smal=1"), HasSubstr("small, sign, bytes@2"));
    EXPECT_THAT(refusal("small"), HasSubstr("FIELD=VALUE"));
}

TEST(Fields, OfSeveralRecordsAreNamedApart) {
    constexpr std::string_view kNames[] = {"one", "two"};
    const Layout layout = {kSample, sizeof(Sample), kNames};
    Bytes record(layout.whole_size());
    apply_assignment(fields_of(layout), "two.middle=258", record);
    Bytes expected(56);
    expected[28 + 4] = 2;
    expected[28 + 5] = 1;
    EXPECT_EQ(record, expected);
    EXPECT_EQ(record_json(layout, record)["one.middle"], 0);
}

// A table whose rows overlap, leave their record or come out of order would lose bytes on the way.
TEST(Fields, OfEveryLayoutCoverItsRecordOnce) {
    for (const Layout* layout :
         {&kImageLayout, &kNetworkLayout, &kOsdLayout, &kWifiLayout, &kMotionLayout, &kCoverLayout,
          &kSmartIFrameLayout, &kEncodingLayout, &kFishEncodingLayout, &kPtzLayout, &kTimeLayout,
          &kFishEyeLayout, &kPropertyLayout, &kAlarmLayout, &kDeviceLayout}) {
        std::vector<int> covered(layout->whole_size());
        std::vector<std::string> names;
        for (const NamedField& field : fields_of(*layout)) {
            names.push_back(field.name);
            for (size_t i = 0; i < field.field.width; ++i) ++covered.at(field.field.offset + i);
        }
        EXPECT_THAT(covered, testing::Each(1)) << names.front();
        std::ranges::sort(names);
        EXPECT_EQ(std::ranges::adjacent_find(names), names.end()) << "a name stands twice";
    }
}

TEST(CruiseLines, ReadPointsAndShowThemAgain) {
    const CruiseLine line = parse_cruise_line(2, {"1", "2:10", "256:42:255"}, true);
    EXPECT_EQ(line.ucLineNo, 1);
    EXPECT_EQ(cruise_text(line), "line 2 enabled: 1:5:5 2:10:5 256:42:255\n");
    EXPECT_EQ(cruise_json(line)["points"][2]["preset"], 256);
    EXPECT_EQ(cruise_text(parse_cruise_line(1, {}, false)), "line 1: no points\n");
    const std::vector<std::string> many(33, "1");
    EXPECT_THROW(parse_cruise_line(1, many, false), Failure);
    for (const char* point : {"", "0", "257", "1:0", "1:43", "1:5:256", "1:5:5:5", "x", "1:", ":1"}) {
        EXPECT_THROW(parse_cruise_line(1, {point}, false), Failure) << point;
    }
}

}  // namespace
}  // namespace lenswire::recorder
