// What the program knows of records and files: their fields, cruise lines, firmware.
#include "recorder/records/fields.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>
#include <sstream>

#include "recorder/records/cruise_line.h"
#include "recorder/records/firmware_file.h"
#include "recorder/records/layouts.h"
#include "recorder/records/settings_file.h"
#include "recorder/support/failure.h"
#include "support/folder.h"

namespace lenswire::recorder {
namespace {

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

TEST(Fields, ShowEveryKindAndTheBytesBetween) {
    Bytes record = counting();
    record[1] = 0xFE;
    record[6] = 0x18;
    record[7] = 0xFC;
    record[13] = 0x7F;
    record[15] = 0;
    std::fill_n(record.begin() + 21, 3, uint8_t{0});
    EXPECT_EQ(record_text(kLayout, record),
              "small               65\n"
              "sign                -2\n"
              "bytes@2             4344\n"
              "middle              17989\n"
              "degrees             -1000\n"
              "large               1280002633\n"
              "text                M?O\n"
              "raw                 535455\n"
              "ip                  89.90.91.92\n")
        << "without what has no name and is all zero";
    const auto json = record_json(kLayout, record);
    EXPECT_EQ(json["small"], 65);
    EXPECT_EQ(json["sign"], -2);
    EXPECT_EQ(json["bytes@21"], "000000");
}

TEST(Fields, ChangeNothingButTheirOwnBytes) {
    const std::tuple<const char*, size_t, Bytes> cases[] = {
        {"small=255", 0, {0xFF}},
        {"sign=-128", 1, {0x80}},
        {"bytes@2=00fF", 2, {0x00, 0xFF}},
        {"middle=513", 4, {0x01, 0x02}},
        {"degrees=-2", 6, {0xFE, 0xFF}},
        {"large=4294967295", 8, {0xFF, 0xFF, 0xFF, 0xFF}},
        {"text=a=b", 12, {'a', '=', 'b', 0, 0, 0}},
        {"text=", 12, Bytes(6)},
        {"text=sixsix", 12, {'s', 'i', 'x', 's', 'i', 'x'}},
        {"raw=010203", 18, {1, 2, 3}},
        {"ip=10.0.255.1", 24, {10, 0, 255, 1}}};
    for (const auto& [assignment, offset, bytes] : cases) {
        Bytes record = counting(), expected = record;
        std::ranges::copy(bytes, expected.begin() + static_cast<long>(offset));
        apply_assignment(fields_of(kLayout), assignment, record);
        EXPECT_EQ(record, expected) << assignment;
    }
}

TEST(Fields, RefuseWhatDoesNotFit) {
    std::istringstream cases(  // and what is said of them
        "small=256:from 0 to 255|small=-1:from 0 to 255|small=:from 0 to 255|small=1x:from 0 to 255|"
        "small= 1:from 0 to 255|sign=128:from -128 to 127|sign=-129:from -128 to 127|"
        "large=4294967296:to 4294967295|large=99999999999999999999:to 4294967295|text=seven77:6 bytes|"
        "raw=0102:6 hex digits|raw=0102030:6 hex digits|raw=01020g:6 hex digits|ip=1.2.3:IPv4 address|"
        "smal=1:small, sign, bytes@2|small:FIELD=VALUE");
    for (std::string line; std::getline(cases, line, '|');) {
        const std::string assignment = line.substr(0, line.find(':')),
                          reason = line.substr(assignment.size() + 1);
        Bytes record = counting();
        try {
            apply_assignment(fields_of(kLayout), assignment, record);
            ADD_FAILURE() << assignment << " was accepted";
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code(), kBadInput);
            EXPECT_THAT(failure.what(), testing::HasSubstr(reason)) << assignment;
        }
        EXPECT_EQ(record, counting()) << "a refused value changes nothing";
    }
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

TEST(SettingsFiles, SayInWhichLineSomethingIsWrong) {
    const FileSetting known[] = {
        {"image", &kImageLayout}, {"encoding", &kEncodingLayout}, {"osd", &kOsdLayout}};
    std::istringstream cases(  // and what is said of them
        "[image]|hue = 256#2: image.hue: must be a number from 0|[image]|hue = \"x\"#2: image.hue: must|"
        "[image]|hue = 1.5#2: image.hue: must be a number or|[osd]||name = 3#3: osd.name: must be a text|"
        "[image]|channel = 1#2: image.channel: no such field|[camera]#1: camera: no such setting|"
        "image = 3#1: image: must be a table|[encoding.main]|codec = \"mpeg\"#2: encoding.main.codec: must "
        "be h264|"
        "[osd]|name = \"a\\u0000b\"#2: osd.name: must be a text that prints|"
        "[encoding]|\"main.gop\" = 1|main.gop = 2#2: encoding.main.gop: stands there twice|"
        "[image]|hue = 1|hue = 2#3: |[image#1: |[[cruise]]|line = 4#1: cruise.line: must|"
        "[[cruise]]|line = 1#1: cruise.points: must|[[cruise]]|line = 1|points = [\"0\"]#3: cruise: point "
        "'0'|"
        "[[cruise]]|line = 1|points = [3]#3: cruise.points: must be|cruise = 1#1: cruise: must be tables|"
        "[[cruise]]|line = 1|points = []|[[cruise]]|line = 1|points = []#5: cruise.line: stands there twice|"
        "[[cruise]]|line = 1|points = []|enabled = 1#4: cruise.enabled: must be|");
    for (std::string text, line; std::getline(cases, line, '|');) {
        const size_t mark = line.find('#');
        text += line.substr(0, mark) + "\n";
        if (mark == std::string::npos) continue;
        const auto problems = parse_settings(std::exchange(text, ""), "a.toml", known).problems;
        ASSERT_EQ(problems.size(), 1u) << line;
        EXPECT_THAT(problems[0], testing::StartsWith("a.toml:" + line.substr(mark + 1)));
    }
    std::string deep = "[a";
    for (int i = 0; i < 400'000; ++i) deep += ".a";
    EXPECT_EQ(parse_settings(deep + "]", "", known).problems.size(), 1u);
    const char* good = "[image]\nmirror = true # Übër\nhue = 9\n[encoding]\nsub.codec = \"h265\"\n";
    const SettingsFile file = parse_settings(good, "", known);
    EXPECT_THAT(file.problems, testing::IsEmpty());
    EXPECT_EQ(file.tables.size(), 2u);
}

TEST(CruiseLines, ReadPointsAndShowThemAgain) {
    const CruiseLine line = parse_cruise_line(2, {"1", "2:10", "256:42:255"}, true);
    EXPECT_EQ(line.ucLineNo, 1);
    EXPECT_EQ(cruise_text(line), "line 2 enabled: 1:5:5 2:10:5 256:42:255\n");
    EXPECT_EQ(cruise_json(line)["points"][2],
              (nlohmann::ordered_json{{"preset", 256}, {"time", 42}, {"speed", 255}}));
    EXPECT_EQ(cruise_text(parse_cruise_line(1, {}, false)), "line 1: no points\n");
    EXPECT_NO_THROW(parse_cruise_line(1, std::vector<std::string>(32, "1"), false));
    EXPECT_THROW(parse_cruise_line(1, std::vector<std::string>(33, "1"), false), Failure);
    for (const char* point : {"", "0", "257", "1:0", "1:43", "1:5:256", "1:5:5:5", "x", "1x", "1:", ":1"})
        EXPECT_THROW(parse_cruise_line(1, {point}, false), Failure) << point;
}

TEST(FirmwareFiles, AreMadeSoThatTheyFitAndAreLookedAtByTheirBytes) {
    const test::Folder folder;
    constexpr size_t kHeader = sizeof(UpgradeFileHeader);
    constexpr size_t kTag = LENSWIRE_UPGRADE_TAG_OFFSET + LENSWIRE_UPGRADE_TAG_SIZE;
    const FirmwareTarget full = {"LW_20_BTAMCP_1.0", "HI3516A", "IMX178"};
    const std::tuple<const char*, FirmwareTarget, size_t, const char*> cases[] = {
        // and the name, if any
        {"name", full, kHeader, "LW_20_BD.bin"},
        {"name", full, kHeader - 1, ""},
        {"name", {"LW__21_BTAMC", "", ""}, 1000, "LW_21_trial.bin"},
        {"name", {"LW_20", "", ""}, 1000, ""},
        {"tokens", {"A_B_W_C", "", ""}, 1000, "A_B_W_trial.bin"},
        {"tokens", {"W_A", "", ""}, 1000, ""},
        {"header", full, kHeader, "header-trial.bin"},
        {"header", {"", "HI3516A", ""}, 1000, ""},
        {"header", {"", "", "IMX178"}, 1000, ""},
        {"header", {"", "HI3516AV", "IMX178"}, 1000, ""},
        {"header", {"", "HI3516A", "IMX178LQ"}, 1000, ""},
        {"tag", {}, kTag, "tag-trial.bin"},
        {"tag", {}, kTag - 1, ""}};
    for (const auto& [style, target, size, name] : cases) {
        std::string made;
        try {
            made = look_at_firmware(make_firmware(style, target, size, folder.path())).name;
        } catch (const Failure&) {
        }
        EXPECT_EQ(made, name) << style << size;
    }
    EXPECT_FALSE(look_at_firmware(folder.write("short", Bytes(kHeader - 1))).header);
    EXPECT_THROW(look_at_firmware(folder.path()), Failure) << "a folder";
    EXPECT_THROW(make_firmware("tag", {}, kTag, folder.path("missing")), Failure);
}

}  // namespace
}  // namespace lenswire::recorder
