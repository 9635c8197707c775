// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>

#include "capture/filter_names.h"
#include "capture/fits_writer.h"
#include "capture/name_pattern.h"
#include "capture/output_file.h"
#include "capture/png_writer.h"
#include "fits_file.h"
#include "png_file.h"
#include "test_directory.h"

namespace {

using namespace vorncapture;
using capturetest::FitsFile;
using capturetest::PngFile;
using capturetest::readFits;
using capturetest::readPng;
namespace fs = std::filesystem;

TEST(NamePattern, PlacesStandForWhatIsKnown)
{
    using namespace std::chrono;
    NameParts parts{.number = 7, .start = sys_days{2024y / February / 29} + 23h + 59min + 58s};
    parts.exposureSeconds = 2.5;
    parts.celsius = -10.24;
    parts.camera = "Vorn K12";
    parts.object = "M 31/32";
    constexpr std::pair<const char*, const char*> ROWS[] = {
        {"a.fits", "a.fits"},
        {"{n}-{n:4}", "7-0007"},
        {"{date}-{type}-{seconds}s", "20240229-235958-light-2.5s"},
        {"{temp}C-{filter}-{camera}-{object}", "-10.2C-none-Vorn-K12-M-31-32"},
        {"a{", nullptr},
        {"a}b", nullptr},
        {"{n:0}", nullptr},
        {"{n:10}", nullptr},
        {"{}", nullptr},
    };
    for (const auto& [pattern, name] : ROWS) {
        const auto filled = fillPattern(pattern, parts);
        ASSERT_EQ(filled.ok(), name != nullptr) << pattern;
        if (name != nullptr) {
            EXPECT_EQ(filled.value(), name);
        }
    }
}

TEST(NamePattern, ASequenceWithoutNumbersGetsThem)
{
    EXPECT_EQ(patternForSequence("a.fits", 1), "a.fits");
    EXPECT_EQ(patternForSequence("a.fits", 2), "a-{n:3}.fits");
    EXPECT_EQ(patternForSequence("dir.d/a", 12000), "dir.d/a-{n:5}");
    EXPECT_EQ(patternForSequence("dir/a.fits", 2) + patternForSequence("dir/.a", 2) + patternForSequence(".a", 2),
              "dir/a-{n:3}.fitsdir/.a-{n:3}.a-{n:3}");
    EXPECT_EQ(patternForSequence("{n}.fits", 9), "{n}.fits");
}

TEST(FilterNames, StandForPositions)
{
    const auto names = FilterNames::parse("L, Red,, H alpha");
    ASSERT_TRUE(names.ok());
    constexpr std::pair<const char*, unsigned int> ROWS[] = {
        {"l", 1}, {"RED", 2}, {"h alpha", 4}, {"3", 3}, {"255", 255}, {"256", 0}, {"0", 0}, {"", 0}, {"blue", 0}};
    for (const auto& [text, position] : ROWS) {
        const auto found = names.value().positionOf(text);
        ASSERT_EQ(found.ok(), position != 0) << text;
        EXPECT_EQ(found.ok() ? found.value() : 0, position) << text;
    }
    EXPECT_EQ(names.value().nameOf(1) + names.value().nameOf(4), "LH alpha");
    EXPECT_EQ(names.value().nameOf(3) + names.value().nameOf(5) + names.value().nameOf(0), "350");
    EXPECT_EQ(names.value().positionOf("blue").error().text,
              "\"blue\" is no filter: give its position, from 1, L, Red, H alpha");
    for (const char* nonsense : {"L,R,l", "L,2"})
        EXPECT_FALSE(FilterNames::parse(nonsense).ok()) << nonsense;
    EXPECT_EQ(FilterNames::parse("").value().nameOf(1), "1");
}

class Files : public ::testing::Test, protected capturetest::TestDirectory {};

Frame sampleFrame()
{
    Frame frame;
    frame.width = 3;
    frame.height = 2;
    frame.pixels = {0, 1, 32767, 32768, 65534, 65535};
    frame.camera.name = "Vorn K12";
    frame.camera.serialNumber = 4711;
    frame.camera.caps.pixelSizeX = 6.45;
    frame.camera.caps.pixelSizeY = 5.5;
    frame.camera.caps.colour = COLOUR_RGGB;
    frame.camera.caps.offsetX = 1;
    frame.region = {4, 7, 3, 2};
    frame.exposureSeconds = 2.5;
    frame.request.seconds = 2.5;
    using namespace std::chrono;
    frame.start = sys_days{2024y / February / 29} + 23h + 59min + 58s + 999600us;
    frame.telemetry.celsius = {-10.25};
    frame.telemetry.targetCelsius = -10.5;
    frame.telemetry.gain = 17;
    frame.telemetry.offset = 230;
    frame.filter = 2;
    frame.filterName = "Ha";
    frame.observation = {"M 31", "J. Doe", "Newton", 1000.0, 200.0};
    frame.observation.rightAscensionHours = 42.0 / 60.0 + 44.3 / 3600.0;
    frame.observation.declinationDegrees = -0.5;
    frame.observation.siteLatitudeDegrees = 48.0 + 12.5 / 60.0;
    frame.observation.siteLongitudeDegrees = -(16.0 + 22.0 / 60.0);
    frame.observation.keywords = {{"RUN", "7"}, {"SEEING", "fair"}};
    return frame;
}

/// @return the header of @p fits in one line, sorted by keyword, without what the FITS library adds of its own.
std::string header(FitsFile fits)
{
    for (const char* key : {"", "CHECKSUM", "COMMENT", "DATASUM", "DATE", "EXTEND", "SIMPLE"})
        fits.keys.erase(key);
    std::string line;
    for (const auto& [key, value] : fits.keys)
        line.append(key).append("=").append(value).append(" ");
    return line;
}

TEST_F(Files, FitsHoldsPixelsAndWhatIsKnownOfThem)
{
    const std::string name = path("odd[1](2)!.fits");  // characters that mean something to the FITS library
    const Status written = writeFits(sampleFrame(), name, "tester 1.0", false);
    ASSERT_TRUE(written.ok()) << written.error().text;
    const FitsFile fits = readFits(name);
    EXPECT_EQ(fits.pixels, sampleFrame().pixels);
    EXPECT_TRUE(fits.intact);
    EXPECT_EQ(
        header(fits),
        "APTDIA=200.0 BAYERPAT=RGGB BITPIX=16 BSCALE=1 BZERO=32768 CAMSER=4711 CCD-TEMP=-10.25 "
        "DATE-AVG=2024-03-01T00:00:00.249 DATE-END=2024-03-01T00:00:01.499 DATE-OBS=2024-02-29T23:59:58.999 "
        "EXPOSURE=2.500000 EXPTIME=2.500000 FILTER=Ha FOCALLEN=1000.0 GAIN=17 "
        "IMAGETYP=Light Frame "
        "INSTRUME=Vorn K12 NAXIS=2 NAXIS1=3 NAXIS2=2 OBJCTDEC=-00 30 00.0 OBJCTRA=00 42 44.3 OBJECT=M 31 OBSERVER=J. "
        "Doe "
        "OFFSET=230 PIXSIZE1=6.4500 PIXSIZE2=5.5000 READOUTM=Normal ROWORDER=TOP-DOWN RUN=7 SATURATE=65535 SEEING=fair "
        "SET-TEMP=-10.50 SITELAT=+48 12 30.0 SITELONG=-16 22 00.0 SWCREATE=tester 1.0 TELESCOP=Newton XBAYROFF=1 "
        "XBINNING=1 XORGSUBF=4 "
        "XPIXSZ=6.4500 "
        "YBAYROFF=1 YBINNING=1 YORGSUBF=7 YPIXSZ=5.5000 ");
}

TEST_F(Files, FitsKeepsLongAndForeignTextsAndIsCompressedByName)
{
    Frame frame = sampleFrame();
    frame.observation.object = "\u03a3 2398 \u2013 Barnard, M\u00fcller's \xff" + std::string(100, 'x') + "end";
    ASSERT_TRUE(writeFits(frame, path("a.fits.fz"), "tester", false).ok());
    ASSERT_TRUE(writeFits(frame, path("a.fits"), "tester", false).ok());
    const FitsFile fits = readFits(path("a.fits"));
    EXPECT_EQ(fits.keys.at("OBJECT"), "Sigma 2398 - Barnard, Mueller's ?" + std::string(100, 'x') + "end");
    EXPECT_TRUE(fits.intact);
    EXPECT_NE(contents("a.fits.fz").find("ZCMPTYPE= 'RICE_1"), std::string::npos);
    EXPECT_EQ(readFits(path("a.fits.fz")).pixels, frame.pixels);
}

TEST(FitsKeyword, IsANameThatIsFreeAndAValue)
{
    EXPECT_EQ(parseKeyword("run-1_a=x=y").value(), (std::pair<std::string, std::string>("RUN-1_A", "x=y")));
    EXPECT_EQ(parseKeyword("EMPTY=").value().second, "");
    for (const char* nonsense :
         {"", "=x", "name", "TOOLONGNAME=1", "a b=1", "\u00e4=1", "NAXIS1=5", "end=1", "Simple=T"})
        EXPECT_FALSE(parseKeyword(nonsense).ok()) << nonsense;
}

TEST_F(Files, FitsLeavesOutWhatIsUnknownOrNoLongerTrue)
{
    Frame frame = sampleFrame();
    frame.request.binX = 2;
    frame.request.binY = 3;
    frame.request.dark = true;
    frame.request.preview = frame.request.eightBit = true;
    frame.region = {4, 9, 6, 6};
    frame.telemetry = {};
    frame.filter.reset();
    frame.observation = {};
    ASSERT_TRUE(writeFits(frame, path("a.fits"), "tester", false).ok());
    EXPECT_EQ(header(readFits(path("a.fits"))),
              "BITPIX=16 BSCALE=1 BZERO=32768 CAMSER=4711 DARKTIME=2.500000 "
              "DATE-AVG=2024-03-01T00:00:00.249 DATE-END=2024-03-01T00:00:01.499 DATE-OBS=2024-02-29T23:59:58.999 "
              "EXPOSURE=2.500000 EXPTIME=2.500000 IMAGETYP=Dark Frame INSTRUME=Vorn K12 NAXIS=2 NAXIS1=3 NAXIS2=2 "
              "PIXSIZE1=6.4500 PIXSIZE2=5.5000 READOUTM=Preview 8-bit ROWORDER=TOP-DOWN SATURATE=255 SWCREATE=tester "
              "XBINNING=2 XORGSUBF=2 "
              "XPIXSZ=12.9000 YBINNING=3 YORGSUBF=3 YPIXSZ=16.5000 ");
}

TEST_F(Files, ExistingFilesStayUnlessForced)
{
    std::ofstream(path("a.fits")) << "mine";
    std::ofstream(path("a.png")) << "mine";
    const Status fits = writeFits(sampleFrame(), path("a.fits"), "tester", false);
    ASSERT_FALSE(fits.ok());
    EXPECT_EQ(fits.error().kind, ErrorKind::FILE_ERROR);
    EXPECT_FALSE(writePng(sampleFrame(), path("a.png"), false).ok());
    EXPECT_EQ(fs::file_size(path("a.fits")), 4U);
    EXPECT_EQ(fs::file_size(path("a.png")), 4U);
    EXPECT_EQ(names().size(), 2U);

    EXPECT_TRUE(writeFits(sampleFrame(), path("a.fits"), "tester", true).ok());
    EXPECT_TRUE(writePng(sampleFrame(), path("a.png"), true).ok());
    EXPECT_EQ(readFits(path("a.fits")).pixels, sampleFrame().pixels);
    EXPECT_EQ(names().size(), 2U);
}

TEST_F(Files, FailuresLeaveNothingBehind)
{
    const std::string nowhere = path("missing/a.fits");
    EXPECT_FALSE(writeFits(sampleFrame(), nowhere, "tester", false).ok());
    EXPECT_FALSE(writePng(sampleFrame(), nowhere, false).ok());
    EXPECT_FALSE(writeFits(sampleFrame(), path(""), "tester", true).ok());  // a directory
    EXPECT_FALSE(OutputFile("/dev/null/a.fits", false).check().ok());       // a file in its place

    Frame impossible = sampleFrame();
    impossible.width = 0;
    EXPECT_FALSE(writePng(impossible, path("b.png"), false).ok());
    EXPECT_TRUE(names().empty());
}

const std::vector<uint8_t> CONTENTS = {'n', 'e', 'w'};

/// Calls of a file system that knows no files without a name, as FAT does not.
FileCalls namesOnly()
{
    FileCalls calls = FileCalls::system();
    calls.open = [](const char* name, int flags, mode_t mode) {
        errno = EOPNOTSUPP;
        return (flags & O_TMPFILE) == O_TMPFILE ? -1 : ::open(name, flags, mode);
    };
    return calls;
}

TEST_F(Files, AppearWholeOrNotAtAllWhateverTheDiskDoes)
{
    struct Row {
        const char* what;
        std::function<void(FileCalls&)> break_;
        const char* says;
    };
    const auto fail = [](int code) {
        errno = code;
        return -1;
    };
    const Row rows[] = {
        {"full at once", [&](FileCalls& calls) { calls.write = [&](auto...) { return fail(ENOSPC); }; },
         "No space left"},
        {"full later",
         [&](FileCalls& calls) {
             calls.write = [&, left = 2](int file, const void* bytes, size_t) mutable -> ssize_t {
                 return left-- > 0 ? ::write(file, bytes, 1) : fail(ENOSPC);
             };
         },
         "No space left"},
        {"nothing written", [&](FileCalls& calls) { calls.write = [](auto...) { return 0; }; }, "Input/output error"},
        {"not synced", [&](FileCalls& calls) { calls.fsync = [&](auto...) { return fail(EIO); }; },
         "Input/output error"},
        {"no name",
         [&](FileCalls& calls) {
             calls.link = [&](auto...) { return fail(EPERM); };
             calls.rename = [&](auto...) { return fail(EACCES); };
         },
         "Permission denied"},
    };
    for (const FileCalls& system : {FileCalls::system(), namesOnly()}) {
        for (const Row& row : rows) {
            for (const bool overwrite : {false, true}) {
                SCOPED_TRACE(row.what);
                if (overwrite)
                    std::ofstream(path("a")) << "old";
                FileCalls calls = system;
                row.break_(calls);
                const Status written = OutputFile(path("a"), overwrite, calls).write(CONTENTS);
                ASSERT_FALSE(written.ok());
                EXPECT_EQ(written.error().text.find("cannot write " + path("a") + ": " + row.says), 0U)
                    << written.error().text;
                EXPECT_EQ(contents("a"), overwrite ? "old" : "");
                EXPECT_EQ(names().size(), overwrite ? 1U : 0U);
                fs::remove(path("a"));
            }
        }
    }
}

TEST_F(Files, AreOnTheDiskWithTheirNameBeforeTheyAreAnnounced)
{
    for (const FileCalls& system : {FileCalls::system(), namesOnly()}) {
        for (const bool overwrite : {false, true}) {
            std::string order;
            FileCalls calls = system;
            calls.write = [&](int file, const void* bytes, size_t length) {  // interrupted, then in two pieces
                order += order.empty() ? "i" : "w";
                errno = EINTR;
                return order == "i" ? -1 : ::write(file, bytes, std::min<size_t>(length, 2));
            };
            calls.fsync = [&](int file) {
                struct stat status = {};
                order += fstat(file, &status) == 0 && S_ISDIR(status.st_mode) ? "D" : "F";
                errno = EINVAL;  // as where there is nothing to sync
                return -1;
            };
            EXPECT_TRUE(OutputFile(path("a"), overwrite, calls).write(CONTENTS).ok());
            EXPECT_EQ(order, "iwwFD");
            EXPECT_EQ(contents("a"), "new");
            fs::remove(path("a"));
        }
    }
    FileCalls calls = FileCalls::system();
    calls.fsync = [](int file) {
        struct stat status = {};
        errno = EIO;
        return fstat(file, &status) == 0 && S_ISDIR(status.st_mode) ? -1 : 0;
    };
    const Status unsure = OutputFile(path("a"), false, calls).write(CONTENTS);
    ASSERT_FALSE(unsure.ok());
    EXPECT_NE(unsure.error().text.find("may not survive a power cut"), std::string::npos);
}

TEST_F(Files, LeftBehindByAKilledRunStandInNobodysWay)
{
    for (const FileCalls& system : {FileCalls::system(), namesOnly()}) {
        for (int run = 0; run < 2; ++run) {
            const pid_t child = fork();
            if (child == 0) {
                FileCalls calls = system;
                calls.fsync = [](int) { return ::kill(getpid(), SIGKILL); };
                (void)OutputFile(path("a"), false, calls).write(CONTENTS);
                _exit(0);
            }
            int status = 0;
            ASSERT_EQ(waitpid(child, &status, 0), child);
            ASSERT_TRUE(WIFSIGNALED(status));
            EXPECT_FALSE(fs::exists(path("a")));
        }
    }
    EXPECT_EQ(names().size(), 2U) << "only a file system without nameless files keeps some, each with its own name";
    EXPECT_TRUE(OutputFile(path("a"), false, namesOnly()).write(CONTENTS).ok());
    EXPECT_EQ(names().size(), 3U) << "what others left is not ours to tidy";
    EXPECT_EQ(contents("a"), "new");
}

TEST_F(Files, ReplaceOnlyRegularFilesAndWriteThroughLinks)
{
    for (const FileCalls& system : {FileCalls::system(), namesOnly()}) {
        const OutputFile late(path("b"), false, system);
        ASSERT_TRUE(late.check().ok());
        FileCalls meanwhile = system;
        meanwhile.fsync = [&](int) {
            std::ofstream(path("b")) << "appeared meanwhile";
            return 0;
        };
        const Status written = OutputFile(path("b"), false, meanwhile).write(CONTENTS);
        ASSERT_FALSE(written.ok());
        EXPECT_NE(written.error().text.find("exists already"), std::string::npos);
        EXPECT_EQ(contents("b"), "appeared meanwhile");
        EXPECT_FALSE(late.write(CONTENTS).ok());
        fs::remove(path("b"));
    }
    fs::create_directory(path("elsewhere"));
    fs::create_symlink("elsewhere/real", path("link"));
    for (const char* old : {"", "old"}) {
        std::ofstream(path("elsewhere/real")) << old;
        EXPECT_FALSE(OutputFile(path("link"), false).write(CONTENTS).ok());
        EXPECT_TRUE(OutputFile(path("link"), true).write(CONTENTS).ok());
        EXPECT_TRUE(fs::is_symlink(path("link")));
        EXPECT_EQ(contents("elsewhere/real"), "new");
    }
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
    fs::create_symlink("/dev/full", path("device"));
    for (const char* name : {"fifo", "device", "elsewhere"}) {
        EXPECT_FALSE(OutputFile(path(name), true).check().ok()) << name;
        EXPECT_FALSE(OutputFile(path(name), true).write(CONTENTS).ok()) << name;
    }
    EXPECT_TRUE(fs::is_fifo(path("fifo")));
}

TEST_F(Files, FullDiskLeavesNoFile)
{
    Frame frame = sampleFrame();
    frame.width = 200;
    frame.height = 100;
    for (uint32_t i = 0; frame.pixels.size() < 20000; ++i)  // what a PNG cannot make small
        frame.pixels.push_back(static_cast<uint16_t>(i * i * 40503U >> 4));
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small = {4096, before.rlim_max};
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const Status fits = writeFits(frame, path("a.fits"), "tester", false);
    const Status png = writePng(frame, path("a.png"), false);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    (void)signal(SIGXFSZ, handler);
    EXPECT_FALSE(fits.ok());
    EXPECT_FALSE(png.ok());
    EXPECT_TRUE(names().empty());
}

TEST_F(Files, PngIsGreyAndStretched)
{
    Frame frame = sampleFrame();
    frame.camera.caps.colour = COLOUR_NONE;
    ASSERT_TRUE(writePng(frame, path("a.png"), false).ok());
    const PngFile png = readPng(path("a.png"));
    EXPECT_EQ(png.channels, 1U);
    const StretchTable table = automaticStretch(frame.pixels);
    ASSERT_EQ(png.levels.size(), frame.pixels.size());
    for (size_t i = 0; i < png.levels.size(); ++i)
        EXPECT_EQ(png.levels[i], table[frame.pixels[i]]) << i;
}

TEST(Stretch, LiftsTheSkyAndKeepsTheBrightest)
{
    std::vector<uint16_t> pixels = {60000};  // a star
    for (uint16_t value = 900; value <= 1100; ++value)
        pixels.push_back(value);
    const StretchTable table = automaticStretch(pixels);
    // Worked out by hand: the noise is 1.4826 x 50, and black lies 2.8 times that below the sky.
    constexpr std::pair<size_t, int> LEVELS[] = {{792, 0},    {800, 3},    {850, 22},    {1000, 64},   {1100, 84},
                                                 {1500, 136}, {3000, 200}, {10000, 241}, {60000, 255}, {65535, 255}};
    for (const auto& [value, level] : LEVELS)
        EXPECT_EQ(table[value], level) << value;
}

TEST(Stretch, IsNoFinerThanOneStepOfCoarseData)
{
    // Bytes as a camera hands them over: most at the sky, one in ten a step beside it, and a star.
    for (const unsigned step : {1U, 256U}) {
        std::vector<uint16_t> pixels = {static_cast<uint16_t>(step * 255)};
        for (unsigned i = 0; i < 1000; ++i)
            pixels.push_back(static_cast<uint16_t>(step * (i % 10 == 0 ? 1 : i % 10 == 1 ? 3 : 2)));
        const StretchTable table = automaticStretch(pixels);
        EXPECT_EQ(table[step * 2], 64) << step;
        EXPECT_GT(table[step], 30) << "pepper";
        EXPECT_LT(table[step * 3], 100) << "salt";
        EXPECT_EQ(table[step * 255], 255) << step;
    }
}

TEST(Stretch, NeverFallsWhateverThePicture)
{
    const std::vector<std::vector<uint16_t>> pictures = {
        {0}, {65535}, {7, 7, 7, 7}, {0, 65535}, {0, 0, 0, 1}, {100, 101, 102, 5000}, {65534, 65535, 65535}};
    for (const auto& pixels : pictures) {
        const StretchTable table = automaticStretch(pixels);
        ASSERT_EQ(table.size(), 65536U);
        EXPECT_TRUE(std::is_sorted(table.begin(), table.end()));
        const uint16_t brightest = *std::max_element(pixels.begin(), pixels.end());
        const bool standsOut = brightest > pixels[pixels.size() / 2];
        // nothing but sky is not black either
        EXPECT_GE(table[brightest], standsOut ? 255 : brightest == 0 ? 0 : 64) << brightest;
    }
}

}  // namespace
