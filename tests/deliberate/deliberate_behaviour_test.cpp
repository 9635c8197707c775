// SPDX-License-Identifier: MIT
// What looks like a mistake and is none: hosts rely on it, or it was weighed and accepted. Each row names the test that
// keeps anybody from repairing it.
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace {

struct Deliberate {
    const char* behaviour;  ///< behind the name of the source that calls it deliberate, if one does
    const char* test;       ///< Suite.Test
};

constexpr Deliberate TABLE[] = {
    // ---- interface ------------------------------------------------------------------------------------------------
    {"the order of the virtual operations never changes", "VirtualTable.KeepsItsOrder"},
    {"camera_impl: the third capability is the 8-bit mode, none is GPIO",
     "Capabilities.PointerFormGivesTheFamilyLimits"},
    {"capabilities: a width of 3326 has its own least exposure", "Capabilities.PointerFormGivesTheFamilyLimits"},
    {"closing leaves what was identified", "Capabilities.AClosedCameraHasNone"},
    {"parameters take any value", "Parameters.BelongToTheirFamilies"},
    {"construction: destroying a camera does not close it", "Destroy.LeavesAnOpenHandleAlone"},

    // ---- trace ----------------------------------------------------------------------------------------------------
    {"trace: a dump of no bytes is a closing bracket alone", "HexDump.ShowsAtMostFourBytes"},
    {"trace: a quiet loop sets the second switch", "Switches.AppInitSetsTheSecond"},
    {"cameras in parallel share one indentation", "ThreadedCameras.AreTracedWhileTheSwitchesChange"},

    // ---- discovery ------------------------------------------------------------------------------------------------
    {"the vendor does not matter", "Discovery.TakesCamerasInBusOrderAndSkipsTheRest"},
    {"discovery: one line of the trace has no end", "Discovery.SurvivesALockedOutBus"},
    {"discovery: device references are never given back", "Discovery.KnowsEveryModel"},
    {"model_table: a model stands twice in the table", "Discovery.KnowsEveryModel"},

    // ---- opening --------------------------------------------------------------------------------------------------
    {"a failed open releases a lock that it never took", "Open.AFailedLibusbOpenReleasesTheLockFirst"},
    {"detaching a kernel driver may fail", "OpenStandard.DetachesAKernelDriver"},
    {"pause, flush and colour record follow a failed set-up", "OpenStandard.HoldsTheWholeConversation"},
    {"a failed open keeps the fields it had filled", "OpenClassic.AFailureKeepsWhatWasFilledBefore"},
    {"modes survive closing and opening", "OpenClassic.HoldsTheWholeConversation"},
    {"open: CLASSIC cameras are tried again without end", "OpenClassic.TriesAgainUntilTheCameraAnswers"},
    {"open: each try goes through the virtual table", "OpenClassic.TriesAgainThroughTheVirtualTable"},
    {"identify_iidc: IIDC cameras get one millisecond after their reset", "OpenIidc.HoldsTheWholeConversation"},
    {"description: a set guide port flag means there is none", "OpenStandard.TakesWhatTheCameraSays"},
    {"description: except on QUICKER cameras, where it means there is one", "OpenQuicker.TakesWhatTheDescriptionSays"},
    {"identify_advanced: ADVANCED cameras never report a shutter", "OpenAdvanced.HoldsTheWholeConversation"},
    {"ADVANCED cameras tell the most power first", "OpenAdvanced.HoldsTheWholeConversation"},
    {"identify_advanced: stale reply bytes reach line count and serial number", "OpenAdvanced.TakesStaleBytes"},
    {"a wheel that never stops does not fail the open", "OpenAdvanced.TakesWhatTheCameraSays"},
    {"identify_standard: STANDARD cameras never report GPIO or an 8-bit mode", "OpenStandard.TakesWhatTheCameraSays"},
    {"two product ids have their own sensor size", "OpenStandard.TakesWhatTheCameraSays"},
    {"identify_standard: fields take what was read also when a read failed",
     "OpenStandard.FieldsTakeWhatAFailedReadLeft"},
    {"identify_classic: CLASSIC cameras have no accessories", "OpenClassic.HoldsTheWholeConversation"},
    {"identify_classic: CLASSIC pixel counts are one too high; 0 wraps", "OpenClassic.TakesWhatTheCameraSays"},
    {"QUICKER pixel counts are signed", "OpenQuicker.TakesWhatTheDescriptionSays"},

    // ---- transport ------------------------------------------------------------------------------------------------
    {"usb_transport: a short write is a success", "BulkWrite.TakesAShortOneForSuccess"},
    {"a failed write is traced with a blank at its end, a failed read without", "TraceLines.OfBridgePrimitives"},
    {"releasing a lock that nobody holds is harmless", "Lock.ReleaseIsHarmlessWhenNobodyHoldsIt"},
    {"pause: the pause helper takes microseconds in spite of its name", "AppInit.PollsUpTo64Times"},
    {"bridge_serial: EEPROM addresses wrap at 256", "CheckColour.DecodesTheRecord"},
    {"bridge: so the colour record lies at 1000", "CheckColour.DecodesTheRecord"},
    {"what arrived before a failure is stored", "GetImage.AFailureKeepsWhatArrived"},
    {"command_protocol: a 16-bit value with a reply goes low byte first", "BridgePrimitive.SendsTheseBytesOrFails"},
    {"liveness: a QUICKER ping judges the number alone", "Ping.WantsTheNumberBackWithinItsTries"},
    {"liveness: flushing restores the host's timeout", "Flush.RestoresTheGlobalTimeout"},
    {"firmware_upload: a failure of the last firmware record is not called incomplete",
     "WriteFirmware.FollowsTheTableAHostPutThere"},
    {"register_access: nobody learns of a failed register write", "OpenIidc.HoldsTheWholeConversation"},

    // ---- exposure -------------------------------------------------------------------------------------------------
    {"exposure_control: a stuck shutter fails the abortion without a text", "AbortExposure.ClosesTheShutter"},
    {"exposure_control: only the width of ADVANCED images rounds up", "ImageSize.RoundsUpOnlyOneWidth"},
    {"QUICKER exposures leave guiding as it is", "Exposure.HoldsTheWholeConversation"},
    {"readout: heights are compared with the width, and sums wrap", "ReadoutRegion.IsCheckedAgainstTheWidthBothWays"},
    {"readout: a refused long readout releases a lock that it never took",
     "ReadoutRegion.IsCheckedAgainstTheWidthBothWays"},
    {"readCCD returns with the lock held, getImage releases it", "ThreadedCameras.KeepTheLockFromReadoutToImage"},
    {"readout: IIDC refusals leave the text as it was", "ReadShortIidc.RefusalsLeaveTheText"},
    {"readout_iidc: the longest IIDC exposure sets no shutter", "ReadShortIidc.ChoosesTheFastestFrameRate"},
    {"byte orders differ between families: ADVANCED high byte first", "ReadCommand.SendsCodeGeometryAndFlags"},
    {"CLASSIC coordinates count from 1 and end one past the last", "ReadCommand.SendsCodeGeometryAndFlags"},
    {"image_transfer: QUICKER rows are as far apart as the region is high", "GetImageQuicker.PutsRowsAHeightApart"},
    {"the precharge difference is doubled and offset", "GetImageQuicker.SubtractsPrechargeRowAfterRow"},
    {"one value less is moved, the last from behind the end", "GetImageAdvanced.DropsTheTwoLeadingValues"},
    {"and also after a failed transfer", "GetImageAdvanced.DropsTheTwoLeadingValues"},

    // ---- accessories ----------------------------------------------------------------------------------------------
    {"temperature: a sensor of type 0 ends the process", "TemperatureDeathTest.TypeZeroEndsTheProcess"},
    {"except on ADVANCED cameras", "Accessory.SendsTheseBytesOrFails"},
    {"temperature: a silent register reads -273.15 degrees and succeeds", "TemperatureIidc.IsInTenthsOfAKelvin"},
    {"a sensor is called senzor", "TraceLines.OfOperationsWithTraffic"},
    {"cooling: reading the cooler fails to set its status", "Accessory.SendsTheseBytesOrFails"},
    {"cooling: a null state suppresses target and power", "CoolingStatus.ANullStateSuppressesTheOthers"},
    {"cooling: cooler power is not clamped, and may divide by zero", "CoolingStatus.PowerIsNotClamped"},
    {"cooling: the set-point is traced under two names", "TraceLines.OfOperationsWithoutTraffic"},
    {"filter_wheel: ADVANCED filter numbers lose their high byte", "Accessory.SendsTheseBytesOrFails"},
    {"modes: a refused dark mode leaves the text as it was", "Modes.BelongToTheirFamilies"},
    {"shutter: the shutter is traced under a short name", "TraceLines.OfOperationsWithoutTraffic"},
    {"guide_relays: QUICKER closes both guide relays of a pair", "Accessory.SendsTheseBytesOrFails"},
    {"gpio: GPIO levels are stored after a failure too", "Accessory.SendsTheseBytesOrFails"},
    {"gain: gain of other families succeeds with an error's text", "Gain.OfOtherFamiliesLeavesAText"},
    {"gain: reading the gain fails to set it", "GetGain.AsksAgainUpToAHundredTimes"},
    {"gain: setting the gain ends with the line of reading it", "SetGain.GivesUpAtTheHundredAndFirst"},
    {"one blank before an invalid parameter, two before no response", "SetGain.RefusesWhatIsOutOfRange"},
    {"the first valid gain record is never used", "SetGain.WritesTheSecondValidRecord"},
};

/// Calls @p found with each match of @p pattern in the sources under @p folder, and the file's name.
void search(const char* folder, const char* pattern,
            const std::function<void(const std::smatch& match, const std::string& file)>& found)
{
    const std::regex expression(pattern);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (entry.path().extension() != ".cpp" && entry.path().extension() != ".h")
            continue;
        std::ifstream file(entry.path());
        const std::string text(std::istreambuf_iterator<char>(file), {});
        for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end; ++match)
            found(*match, entry.path().stem());
    }
}

TEST(DeliberateBehaviour, IsPinnedByTestsThatExist)
{
    std::set<std::string> tests;
    search(PROJECT_DIR "/tests", "(^|\n)TEST(?:_F|_P)?\\((\\w+),\\s*(\\w+)\\)",
           [&](const auto& match, const auto&) { tests.insert(match[2].str() + "." + match[3].str()); });
    for (const Deliberate& row : TABLE)
        EXPECT_TRUE(tests.contains(row.test)) << row.behaviour << ": no test " << row.test;
}

TEST(DeliberateBehaviour, HasARowForEachMarkInTheSources)
{
    std::map<std::string, int> unlisted;  // marks without a row, by file
    search(PROJECT_DIR "/src", "deliberate:", [&](const auto&, const std::string& file) { unlisted[file]++; });
    for (const Deliberate& row : TABLE)
        unlisted[std::string(row.behaviour).substr(0, std::string(row.behaviour).find(':'))]--;
    for (const auto& [file, count] : unlisted)
        EXPECT_LE(count, 0) << file << " calls more deliberate than the table does";
}

}  // namespace
