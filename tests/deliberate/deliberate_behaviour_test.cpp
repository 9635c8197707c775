// SPDX-License-Identifier: MIT
// What looks like a mistake and is none: hosts rely on it, or it was weighed and accepted. Each row names the source
// file that does it and the test that keeps anybody from repairing it.
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace {

struct Deliberate {
    const char* behaviour;
    const char* where;  ///< source file
    const char* test;   ///< Suite.Test
};

constexpr Deliberate TABLE[] = {
    // ---- interface ------------------------------------------------------------------------------------------------
    {"the order of the virtual operations never changes", "include/vornccd.h", "VirtualTable.KeepsItsOrder"},
    {"the third capability is the 8-bit mode; a GPIO port is reported by neither form", "src/lifecycle/camera_impl.h",
     "Capabilities.PointerFormSkipsNullAndGivesTheFamilyLimits"},
    {"the shortest exposure is tied to a sensor width of 3326", "src/lifecycle/capabilities.cpp",
     "Capabilities.PointerFormSkipsNullAndGivesTheFamilyLimits"},
    {"closing leaves what was identified", "src/lifecycle/capabilities.cpp",
     "Capabilities.AClosedCameraHasNoneAndLeavesTheOutputs"},
    {"parameters take any value", "src/lifecycle/construction.cpp", "Parameters.BelongToTheirFamilies"},
    {"destroying a camera does not close it", "src/lifecycle/construction.cpp",
     "Destroy.IgnoresNullAndLeavesAnOpenHandleAlone"},

    // ---- trace ----------------------------------------------------------------------------------------------------
    {"a dump of no bytes is a closing bracket alone", "src/trace/trace.cpp", "HexDump.ShowsAtMostFourBytes"},
    {"a host that cleared the second switch finds it set after a quiet loop", "src/trace/trace.cpp",
     "Switches.AppInitTurnsTheSecondSwitchOnForAHostThatHadClearedIt"},
    {"cameras in parallel share one indentation", "src/trace/trace.cpp",
     "ThreadedCameras.AreTracedWhileTheSwitchesChange"},

    // ---- discovery ------------------------------------------------------------------------------------------------
    {"the vendor does not matter", "src/lifecycle/discovery.cpp", "Discovery.TakesCamerasInBusOrderAndSkipsTheRest"},
    {"one line of the trace has no end", "src/lifecycle/discovery.cpp", "Discovery.SurvivesALockedOutBus"},
    {"device references are never given back", "src/lifecycle/discovery.cpp", "Discovery.KnowsEveryModel"},
    {"a model stands twice in the table", "src/lifecycle/model_table.cpp", "Discovery.KnowsEveryModel"},

    // ---- opening --------------------------------------------------------------------------------------------------
    {"a failed open releases a lock that it never took", "src/lifecycle/open.cpp",
     "OpenStandard.AFailedLibusbOpenReleasesTheLockFirst"},
    {"the outcome of detaching a kernel driver does not matter", "src/lifecycle/open.cpp",
     "OpenStandard.DetachesAKernelDriverAndIgnoresTheOutcome"},
    {"pause, flush and colour record follow a failed set-up", "src/lifecycle/open.cpp",
     "OpenStandard.EachFailingTransferLeavesItClosed"},
    {"a failed open keeps the fields it had filled", "src/lifecycle/open.cpp",
     "OpenClassic.AFailureKeepsWhatWasFilledBefore"},
    {"modes survive closing and opening", "src/lifecycle/open.cpp", "OpenClassic.KeepsTheModesOfTheTimeBefore"},
    {"CLASSIC cameras are tried again without end, the counter never counts", "src/lifecycle/open.cpp",
     "OpenClassic.GoesOnTryingOnAFlatStackUntilTheCameraIsGone"},
    {"IIDC cameras get one millisecond after their reset", "src/lifecycle/identify_iidc.cpp",
     "OpenIidc.HoldsTheWholeConversationAndDescribesTheCamera"},
    {"a set guide port flag means there is none", "src/lifecycle/description.h", "OpenStandard.TakesWhatTheCameraSays"},
    {"except on QUICKER cameras, where it means there is one", "src/lifecycle/description.h",
     "OpenQuicker.TakesWhatTheDescriptionSays"},
    {"ADVANCED cameras never report a shutter", "src/lifecycle/identify_advanced.cpp",
     "OpenAdvanced.HoldsTheWholeConversationAndDescribesTheCamera"},
    {"ADVANCED cameras tell the largest cooler power first", "src/lifecycle/identify_advanced.cpp",
     "OpenAdvanced.HoldsTheWholeConversationAndDescribesTheCamera"},
    {"stale reply bytes reach line count and serial number", "src/lifecycle/identify_advanced.cpp",
     "OpenAdvanced.StaleBytesReachLineCountAndSerialNumber"},
    {"a wheel that never stops does not fail the open", "src/lifecycle/identify_common.cpp",
     "OpenAdvanced.TakesWhatTheCameraSays"},
    {"STANDARD cameras never report GPIO or an 8-bit mode", "src/lifecycle/identify_standard.cpp",
     "OpenStandard.TakesWhatTheCameraSays"},
    {"two product ids have their own sensor size", "src/lifecycle/identify_standard.cpp",
     "OpenStandard.TakesWhatTheCameraSays"},
    {"fields take what was read also when a read failed", "src/lifecycle/identify_standard.cpp",
     "OpenStandard.FieldsTakeWhatAFailedReadLeft"},
    {"CLASSIC cameras have no accessories whatever they say", "src/lifecycle/identify_classic.cpp",
     "OpenClassic.HoldsTheWholeConversationAndDescribesTheCamera"},
    {"CLASSIC pixel counts are one too high; 0 wraps", "src/lifecycle/identify_classic.cpp",
     "OpenClassic.TakesWhatTheCameraSays"},
    {"QUICKER pixel counts are signed", "src/lifecycle/description.cpp", "OpenQuicker.TakesWhatTheDescriptionSays"},

    // ---- transport ------------------------------------------------------------------------------------------------
    {"a short write is a success", "src/transport/usb_transport.cpp", "BulkWrite.IsOneCallAndAShortOneCountsAsSuccess"},
    {"a failed write is traced with a blank at its end, a failed read without", "src/transport/usb_transport.cpp",
     "TraceLines.OfBridgePrimitives"},
    {"releasing a lock that nobody holds is harmless", "src/transport/usb_transport.cpp",
     "Lock.ReleaseIsHarmlessWhenNobodyHoldsIt"},
    {"the pause helper takes microseconds in spite of its name", "src/transport/pause.h", "AppInit.PollsUpTo64Times"},
    {"EEPROM addresses wrap at 256", "src/transport/bridge_serial.cpp",
     "BridgePrimitive.SendsTheseBytesAndEndsAtTheFirstFailure"},
    {"so the colour record lies at 1000", "src/transport/bridge.h", "CheckColour.DecodesTheRecord"},
    {"what arrived before a failure is stored", "src/transport/bridge_request.cpp",
     "BridgePrimitive.ParInStoresWhatArrivedBeforeTheFailure"},
    {"a 16-bit value with a reply goes low byte first on every family", "src/transport/command_protocol.cpp",
     "SendCommand.FramesByFamilyAndEndsAtTheFirstFailure"},
    {"a QUICKER ping judges the number alone", "src/transport/liveness.cpp", "PingQuicker.AFailedReadIsNoAnswer"},
    {"flushing restores the host's timeout, not the camera's", "src/transport/liveness.cpp",
     "Flush.DrainsUntilTheTimeoutAndRestoresTheGlobalTimeout"},
    {"a failure of the last firmware record is not called incomplete", "src/transport/firmware_upload.cpp",
     "WriteFirmware.FollowsTheTableAHostPutThere"},
    {"nobody learns of a failed register write", "src/transport/register_access.cpp", "OpenIidc.NoRegisterCanFailIt"},

    // ---- exposure -------------------------------------------------------------------------------------------------
    {"a shutter that cannot be closed fails the abortion without a text", "src/exposure/exposure_control.cpp",
     "AbortExposure.ClosesTheShutterOfStandardCamerasOnly"},
    {"only the width of ADVANCED images rounds up", "src/exposure/exposure_control.cpp",
     "ImageSize.OnlyTheWidthOfAdvancedCamerasRoundsUp"},
    {"QUICKER exposures leave guiding as it is", "src/exposure/exposure_control.cpp",
     "StartExposureQuicker.KeepsGuidingAndTheAmplifierBit"},
    {"the height of a region is compared with the sensor's width, and sums wrap", "src/exposure/readout.cpp",
     "ReadoutRegion.IsCheckedAgainstTheWidthBothWays"},
    {"a refused long readout releases a lock that it never took", "src/exposure/readout.cpp",
     "ReadoutRegion.IsCheckedAgainstTheWidthBothWays"},
    {"readCCD returns with the lock held, getImage releases it", "src/exposure/readout.cpp",
     "ThreadedCameras.KeepTheLockFromReadoutToImage"},
    {"IIDC refusals leave the text as it was", "src/exposure/readout.cpp",
     "ReadShortIidc.RefusesUnequalBinningAndLongTimesWithTheTextUnchanged"},
    {"the longest IIDC exposure sets neither frame rate nor shutter", "src/exposure/readout_iidc.cpp",
     "ReadShortIidc.ChoosesTheFastestFrameRateThatHoldsTheShutterTime"},
    {"byte orders differ between families: ADVANCED high byte first", "src/exposure/readout_payload.cpp",
     "ReadLongAdvanced.SendsGeometryBigEndian"},
    {"CLASSIC coordinates count from 1 and end one past the last", "src/exposure/readout_payload.cpp",
     "ReadLongClassic.WaitsTwoSecondsAndCountsFromOne"},
    {"QUICKER rows are as far apart as the region is high", "src/exposure/image_transfer.cpp",
     "GetImageQuicker.PutsRowRAtRTimesTheHeightOfTheRegion"},
    {"the precharge difference is doubled and offset", "src/exposure/pixel_kernels.cpp",
     "GetImageQuicker.SubtractsPrechargeRowAfterRow"},
    {"one value less than asked for is moved, the last from behind the end", "src/exposure/pixel_kernels.cpp",
     "GetImageAdvanced.DropsTheTwoLeadingValues"},
    {"and also after a failed transfer", "src/exposure/image_transfer.cpp",
     "GetImageAdvanced.DropsThemAlsoAfterAFailure"},

    // ---- accessories ----------------------------------------------------------------------------------------------
    {"a sensor of type 0 ends the process", "src/accessories/temperature.cpp",
     "TemperatureDeathTest.TypeZeroEndsTheProcess"},
    {"except on ADVANCED cameras, which keep the temperature", "src/accessories/temperature.cpp",
     "TemperatureAdvanced.TypeZeroSucceedsAndLeavesTheTemperature"},
    {"a register that does not answer reads -273.15 degrees and succeeds", "src/accessories/temperature.cpp",
     "TemperatureIidc.IsTheLowTwelveBitsInTenthsOfAKelvin"},
    {"a sensor is called senzor", "src/accessories/temperature.cpp", "TraceFamilies.OfAccessories"},
    {"reading the cooler fails to set its status", "src/accessories/cooling.cpp",
     "FamilyAccessory.EachFailingTransferGivesTheOperationsOwnText"},
    {"a null state suppresses target and power", "src/accessories/cooling.cpp",
     "CoolingStatus.ANullStateSuppressesTheOthers"},
    {"cooler power is not clamped, its bounds may divide by zero", "src/accessories/cooling.cpp",
     "CoolingStatus.PowerFollowsItsBoundsWhereverTheyAre"},
    {"the set-point is traced under two names", "src/accessories/cooling.cpp", "TraceLines.OfOperationsWithoutTraffic"},
    {"ADVANCED filter numbers lose their high byte", "src/accessories/filter_wheel.cpp",
     "FamilyAccessory.SendsExactlyTheseBytes"},
    {"a refused dark mode leaves the text as it was", "src/accessories/modes.cpp", "Modes.BelongToTheirFamilies"},
    {"the shutter is traced under a short name", "src/accessories/shutter.cpp",
     "TraceLines.OfOperationsWithoutTraffic"},
    {"QUICKER closes both guide relays of a pair", "src/accessories/guide_relays.cpp",
     "FamilyAccessory.SendsExactlyTheseBytes"},
    {"GPIO levels are stored after a failure too", "src/accessories/gpio.cpp",
     "FamilyAccessory.EachFailingTransferGivesTheOperationsOwnText"},
    {"gain of other families succeeds with the text of a failure", "src/accessories/gain.cpp",
     "Gain.OfOtherFamiliesSucceedsWithoutTrafficAndLeavesAText"},
    {"reading the gain fails to set it", "src/accessories/gain.cpp", "GetGain.AsksAgainWithoutPausesUpToAHundredTimes"},
    {"setting the gain ends with the line of reading it", "src/accessories/gain.cpp",
     "SetGain.GivesUpAtTheHundredAndFirstAnswer"},
    {"one blank before an invalid parameter, two before no response", "src/accessories/gain.cpp",
     "SetGain.RefusesWhatIsOutOfRangeUnderTheLock"},
    {"the first valid gain record is never used", "src/accessories/gain.cpp",
     "SetGain.WritesTheSecondValidRecordBackWithOneHalfChanged"},
};

namespace files = std::filesystem;

std::string contentOf(const files::path& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Calls @p visit for each C++ file below @p folder of the project.
template <typename Visitor>
void forEachSource(const char* folder, const Visitor& visit)
{
    const files::path project(PROJECT_DIR);
    for (const auto& entry : files::recursive_directory_iterator(project / folder)) {
        const std::string extension = entry.path().extension();
        if (extension == ".cpp" || extension == ".h")
            visit(files::relative(entry.path(), project).string(), contentOf(entry.path()));
    }
}

TEST(DeliberateBehaviour, IsPinnedByTestsThatExist)
{
    std::set<std::string> tests;
    const std::regex declaration("(^|\n)TEST(?:_F|_P)?\\((\\w+),\\s*(\\w+)\\)");
    forEachSource("tests", [&](const std::string& /*name*/, const std::string& text) {
        for (std::sregex_iterator match(text.begin(), text.end(), declaration), end; match != end; ++match)
            tests.insert((*match)[2].str() + "." + (*match)[3].str());
    });
    for (const Deliberate& row : TABLE) {
        EXPECT_TRUE(tests.contains(row.test)) << row.behaviour << ": no test " << row.test;
        EXPECT_TRUE(files::exists(files::path(PROJECT_DIR) / row.where)) << row.behaviour << ": no file " << row.where;
    }
}

TEST(DeliberateBehaviour, EachMarkedSourceFileIsInTheTable)
{
    std::set<std::string> listed;
    for (const Deliberate& row : TABLE)
        listed.insert(row.where);
    forEachSource("src", [&](const std::string& name, const std::string& text) {
        EXPECT_TRUE(text.find("deliberate:") == std::string::npos || listed.contains(name))
            << name << " marks something as deliberate; name its test in the table";
    });
}

}  // namespace
