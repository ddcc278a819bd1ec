// Does a file fit a camera: everything that is decided without a connection.
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <sstream>

#include "upgrade/upgrade.h"

namespace {

using namespace lenswire::test;

constexpr const char* kFopenError = "[src/privateConfigure:CheckUpgradFile2:N] fopen error\n";

int compare(const Bytes& info, std::string path) {
    return CompareUpgradeFile(info.data(), path.data());
}

// A header-style file.
Bytes header_file(const std::string& platform, const std::string& sensor, uint32_t length, uint32_t word,
                  size_t size = 100) {
    Bytes file = pattern(size);
    std::memset(file.data(), 0, 16);
    std::memcpy(file.data(), platform.data(), platform.size());
    std::memcpy(file.data() + 8, sensor.data(), sensor.size());
    put_u32(file, 16, length);
    put_u32(file, 20, word);
    return file;
}

// -- The dispatch table, told apart by what each check does with a camera without a firmware name and a file
// that is not there.

TEST(DeviceType, PicksItsCheck) {
    const struct {
        const char* types;
        int result;
        std::string out, err;
    } checks[] = {
        {"0-4 6-10 14-59 69-70 78-89 98-129 135-136 138-139 144-149 151-199 209-219 222-229 235-255", -2, "",
         ""},
        {"5-5 90-97 130-134 137-137 150-150 200-208 220-221 230-234", -1,
         "fopen /no/such/folder/file error\n", ""},
        {"11-13", -1, "#####################checkUpgradFile2###################", kFopenError},
        {"60-68 71-77 140-143", -1, "", ""},
    };
    int tried = 0;
    for (const auto& check : checks) {
        std::istringstream ranges(check.types);
        for (int type, last; ranges >> type >> last;) {
            for (last = -last; type <= last; ++type, ++tried) {
                SCOPED_TRACE(type);
                Capture capture;
                const Bytes camera = device_info(static_cast<uint8_t>(type), "");
                EXPECT_EQ(compare(camera, "/no/such/folder/file"), check.result);
                EXPECT_EQ(capture.out(), check.out);
                EXPECT_EQ(unnumbered(capture.err()), check.err);
            }
        }
    }
    EXPECT_EQ(tried, 256);
}

TEST(DeviceType, AsksForTheHeaderOnlyWithoutALetterSet) {
    const Folder folder;
    // By its header the file fits all of these cameras of type 5.
    const std::string path = folder.write("A_B_x", header_file("HI3516A", "IMX178", 100, 1));
    EXPECT_EQ(compare(device_info(5, "A_B_none_D"), path), 0);
    EXPECT_EQ(compare(device_info(5, ""), path), 0);
    EXPECT_EQ(compare(device_info(5, "A_C_BTAMC_D"), path), -1);
    EXPECT_EQ(compare(device_info(5, "A_B_BTAMC_D"), path), 0);
    EXPECT_EQ(compare(device_info(250, "A_B_none_D"), path), -2);
}

// -- First grammar.

const std::string k31(31, 'n');
const std::string k32(32, 'n');

const struct {
    std::string firmware, path;
    int result;
} kNames[] = {
    // letters, in any order and anywhere in the third field only
    {"A_B_MTAXC_D", "A_B_x.bin", 0},
    {"A_B_BTAMC_D", "A_B_x.bin", 0},
    {"A_B_xFxTxAxMxCx_D", "A_B_x.bin", 0},
    {"A_B_WTAMC_D", "A_B_x.bin", 0},
    {"A_B_TAMC_D", "A_B_x.bin", -2},
    {"A_B_BAMC_D", "A_B_x.bin", -2},
    {"A_B_BTMC_D", "A_B_x.bin", -2},
    {"A_B_BTAC_D", "A_B_x.bin", -2},
    {"A_B_BTAM_D", "A_B_x.bin", -2},
    {"BTAMC_BTAMC_no_BTAMC", "A_B_x.bin", -2},
    {"A_B_BTAMC", "A_B_x.bin", 0},   // no fourth field
    {"A__BTAMC_D", "A__x.bin", -2},  // an empty field ends the scan
    // first two fields
    {"A_B_BTAMC_D", "A_B", 0},
    {"A_B_BTAMC_D", "A_BB_x", -1},
    {"AA_B_BTAMC_D", "A_B_x", -1},
    // the last component of the path is the name
    {"A_B_BTAMC_D", "/X_Y_z/A_B_x.bin", 0},
    {"A_B_BTAMC_D", "/A_B_x/X_Y_z.bin", -1},
    // P asks for BD anywhere in the path
    {"A_B_MTAXCP_D", "A_B_x.bin", -1},
    {"A_B_MTAXCP_D", "A_B_BD.bin", 0},
    {"A_B_MTAXCP_D", "/BD/A_B_x.bin", 0},
    {"A_B_MTAXC_P", "A_B_x.bin", 0},
    // limits: 31 characters a field
    {k31 + "_B_BTAMC", k31 + "_B_x", 0},
    {k32 + "_B_BTAMC", k32 + "_B_x", -1},
    {"A_B_BTAMC" + std::string(26, 'n'), "A_B_x", 0},
    {"A_B_BTAMC" + std::string(27, 'n'), "A_B_x", -1},
    {"A_B_BTAMC_" + k31, "A_B_" + k31, 0},
    {"A_B_BTAMC_" + k32, "A_B_x", -1},
    {"A_B_BTAMC_D", "A_B_" + k32, -1},
    // 63 a name, 127 a path
    {"A_B_BTAMC_D", "A_B_x_" + std::string(57, 'n'), 0},
    {"A_B_BTAMC_D", "A_B_x_" + std::string(58, 'n'), -1},
    {"A_B_BTAMC_D_" + std::string(51, 'n'), "A_B_x", 0},
    {"A_B_BTAMC_D_" + std::string(52, 'n'), "A_B_x", -1},
    {"A_B_BTAMC_D", std::string(121, '/') + "A_B_xy", 0},
    {"A_B_BTAMC_D", std::string(122, '/') + "A_B_xy", -1},
    {"A_B_none_D", std::string(122, '/') + "A_B_xy", -2},
};

TEST(FirstGrammar, ComparesLettersAndTwoFields) {
    for (const auto& c : kNames) {
        std::string path = c.path;
        EXPECT_EQ(QM_VT_NewUpgradeFileCheck(c.firmware.c_str(), path.data()), c.result)
            << c.firmware << " | " << c.path;
        EXPECT_EQ(path, c.path);
    }
}

// -- Second grammar.

constexpr const char* kTokensFit = "#####################S2L CheckUpgrade successful";
constexpr const char* kTokensDiffer = "###################CheckUpgrafe error";

std::string tokens(size_t count) {
    std::string text = "a";
    for (size_t i = 1; i < count; ++i) text += "_a";
    return text;
}

const struct {
    std::string firmware, path;
    const char* out;
} kTokenCases[] = {
    {"S2L_55_W", "/any/S2L_55M_W_x.bin", kTokensFit},
    {"S2L_55_W", "S2L_5_W_x.bin", kTokensDiffer},
    {"S2L_55_Wx", "S2L_55_Wxy", kTokensFit},  // no end: not exactly W
    {"S2L_55", "S2L_W_55", kTokensDiffer},    // the file's list ends at its W
    {"S2L_55", "S2L", kTokensDiffer},
    {"W_S2L", "S2L", ""},
    {k31, k31, kTokensFit},
    {k32, k32, kTokensDiffer},
    {"n", k32, kTokensDiffer},
    {tokens(16), tokens(16), kTokensFit},
    {tokens(16) + "_W", tokens(16) + "_W_a", kTokensFit},
    {tokens(17), tokens(17), kTokensDiffer},
    {"a", tokens(17), kTokensDiffer},
    {"S2L__55", "S2L_55", kTokensFit},
    {"S2L", "S2L_" + std::string(28, 'n') + "_" + std::string(30, 'n'), kTokensFit},
    {"S2L", "S2L_" + std::string(28, 'n') + "_" + std::string(31, 'n'), kTokensDiffer},
};

TEST(SecondGrammar, ComparesTheTokensBeforeW) {
    for (const auto& c : kTokenCases) {
        Capture capture;
        Bytes info = device_info(60, c.firmware);
        EXPECT_EQ(CheckUpgradFile3(info.data(), c.path.c_str()), c.out == kTokensFit ? 0 : -1)
            << c.firmware << " | " << c.path;
        EXPECT_EQ(capture.out(), c.out) << c.firmware << " | " << c.path;
    }
}

// -- Header.

constexpr const char* kNamesError =
    "[src/privateConfigure:CheckUpgradFile:N] #######!platform.empty() && !sensortype.empty() "
    "error########\n";
constexpr const char* kTypeError = "[src/privateConfigure:CheckUpgradFile:N] ndevType error\n";
constexpr const char* kLengthError = "[src/privateConfigure:CheckUpgradFile:N] upgrateDataLen error\n";

TEST(HeaderCheck, ComparesNamesAndLength) {
    const Folder folder;
    const struct {
        uint8_t type;
        std::string camera_platform, camera_sensor;
        Bytes file;
        const char* err;  // empty, like out: fits
        const char* out = "";
        int64_t more = 0;  // bytes behind those
    } cases[] = {
        // the camera's own names
        {0, "GM8138", "OV4689", header_file("GM8138", "OV4689", 100, 1), ""},
        {0, "GM8138", "OV4689", header_file("GM8139", "OV4689", 100, 1), kNamesError},
        {0, "GM8138", "OV4689", header_file("GM8138", "OV468", 100, 1), kNamesError},
        {0, "GM8138", "OV4689", header_file("GM8138", "OV4689", 100, 0), kNamesError},
        {0, "GM8138", "OV4689", header_file("GM8138", "OV4689", 0, 1), kNamesError},
        {0, "GM8138", "OV4689", header_file("GM8138", "OV4689", 99, 1), kLengthError},
        {0, "HI3516A", "IMX1781", header_file("HI3516A", "IMX1781", 100, 1), ""},
        {0, "HI3516AV", "OV4689", header_file("HI3516AV", "OV4689", 100, 1), kNamesError},
        {0, "GM8138", "OV468912", header_file("GM8138", "OV468912", 100, 1), kNamesError},
        // names by device type, also when the camera gives only one of its two
        {5, "", "", header_file("HI3516A", "IMX178", 100, 1), ""},
        {5, "GM8138", "", header_file("HI3516A", "IMX178", 100, 1), ""},
        {5, "", "OV4689", header_file("HI3516A", "IMX178", 100, 1), ""},
        {5, "", "", header_file("HI3516A", "IMX178", 100, 0), kTypeError},
        {5, "", "", header_file("HI3516A", "IMX178", 0, 1), kTypeError},
        {5, "", "", header_file("HI3516A", "OV4689", 100, 1), kTypeError},
        {100, "", "", header_file("GM8136", "OV2715", 100, 1), ""},
        {100, "", "", header_file("GM8135", "OV9732", 100, 1), ""},
        {100, "", "", header_file("GM8136", "OV9732", 100, 1), kTypeError},
        {101, "", "", header_file("GM8138", "OV4689", 100, 1), ""},
        {102, "", "", header_file("GM8135", "OV9750", 100, 1), ""},
        {200, "", "", header_file("HI3516D", "OV4689", 100, 1), ""},
        // no names at all
        {90, "", "", header_file("", "", 100, 0), ""},
        {90, "", "", header_file("XXXXXXXX", "YYYYYYYY", 100, 0), ""},
        {90, "", "", header_file("", "", 0, 0), kLengthError},
        {90, "", "", header_file("", "", 24, 0, 24), ""},
        {90, "", "", slice(header_file("", "", 23, 0), 0, 23), "", "fread error"},
        // a length of 32 bits never matches a longer file by its low bits
        {90, "", "", header_file("", "", 100, 0), kLengthError, "", int64_t{1} << 32},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        Capture capture;
        const std::string path = folder.write("file", c.file);
        ASSERT_EQ(truncate64(path.c_str(), static_cast<int64_t>(c.file.size()) + c.more), 0);
        const Bytes info = device_info(c.type, "", c.camera_platform, c.camera_sensor);
        EXPECT_EQ(CheckUpgradFile(info.data(), path.c_str()), *c.err == '\0' && *c.out == '\0' ? 0 : -1);
        EXPECT_EQ(unnumbered(capture.err()), c.err);
        EXPECT_EQ(capture.out(), c.out);
    }
}

// -- Tag.

TEST(TagCheck, WantsTheWordAtItsPlace) {
    const Folder folder;
    const std::string ended("APPLICATION\0", 12);
    const std::tuple<size_t, std::string, std::string> cases[] = {
        {308, ended, ""},
        {400, ended + "more", ""},
        {307, ended, " fread error\n"},
        {308, "APPLICATION", " strcmp APPLICATION error\n"},
        {308, std::string("APP\0", 4), " strcmp APPLICATION error\n"},
    };
    for (const auto& [size, tag, error] : cases) {
        Capture capture;
        const Bytes file = repeated('.', 180) + padded(bytes_of(tag) + repeated('.', size), size - 180);
        const std::string path = folder.write("file", file);
        EXPECT_EQ(CheckUpgradFile2(11, path.c_str()), error.empty() ? 0 : -1) << tag;
        EXPECT_EQ(unnumbered(capture.err()),
                  error.empty() ? "" : "[src/privateConfigure:CheckUpgradFile2:N]" + error);
        EXPECT_EQ(capture.out(), "#####################checkUpgradFile2###################");
    }
}

// -- What is hostile about arguments.

// Allocated to the byte, so that a sanitizer sees the first byte beyond.
TEST(Arguments, AreReadNoFurtherThanTheirFields) {
    Capture capture;
    std::vector<char> path(128, 'A');
    for (int type = 0; type < 256; ++type) {
        Bytes info = repeated('W', 464);
        info[1] = static_cast<uint8_t>(type);
        EXPECT_NE(CompareUpgradeFile(info.data(), path.data()), 0) << type;
        EXPECT_NE(compare(info, "/dev/null"), 0) << type;
    }
    const Bytes name = bytes_of("A_B_BTAMC_") + repeated('n', 54);
    std::string file = "A_B_x";
    EXPECT_EQ(QM_VT_NewUpgradeFileCheck(reinterpret_cast<const char*>(name.data()), file.data()), -1);
}

TEST(Arguments, MayBeMissing) {
    Capture capture;
    Bytes info = device_info(0, kFirmware);
    std::string path = kFileName;
    EXPECT_THAT(
        (std::vector{CompareUpgradeFile(nullptr, path.data()), CompareUpgradeFile(info.data(), nullptr),
                     QM_VT_NewUpgradeFileCheck(nullptr, path.data()),
                     QM_VT_NewUpgradeFileCheck(kFirmware, nullptr), CheckUpgradFile(info.data(), nullptr),
                     CheckUpgradFile2(11, nullptr), CheckUpgradFile3(nullptr, path.data())}),
        Each(-1));
    EXPECT_EQ(occurrences(capture.err(), "\n"), 7);
}

// A pipe that nobody writes into would hold its reader for ever.
TEST(Arguments, NameRegularFiles) {
    const Folder folder;
    const std::string pipe = folder.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& path : {pipe, folder.path(""), std::string("/dev/zero")}) {
        Capture capture;
        EXPECT_EQ(CheckUpgradFile(device_info(90, "").data(), path.c_str()), -1);
        EXPECT_EQ(capture.out(), "fopen " + path + " error\n");
        EXPECT_EQ(CheckUpgradFile2(11, path.c_str()), -1);
        EXPECT_EQ(unnumbered(capture.err()), kFopenError);
    }
}

}  // namespace
