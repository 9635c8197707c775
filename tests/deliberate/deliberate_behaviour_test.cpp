// SPDX-License-Identifier: MIT
// What looks like a mistake and is none: hosts rely on it, or it was weighed and accepted. Each row names the test that
// keeps anybody from repairing it.
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace {

struct Deliberate {
    const char* behaviour;
    const char* test;  ///< Suite.Test
};

constexpr Deliberate TABLE[] = {
    // ---- interface ------------------------------------------------------------------------------------------------
    {"the order of the virtual operations never changes", "VirtualTable.KeepsItsOrder"},
    {"the third capability is the 8-bit mode, none is GPIO",
     "Capabilities.PointerFormSkipsNullAndGivesTheFamilyLimits"},
    {"a width of 3326 has its own least exposure", "Capabilities.PointerFormSkipsNullAndGivesTheFamilyLimits"},
    {"closing leaves what was identified", "Capabilities.AClosedCameraHasNoneAndLeavesTheOutputs"},
    {"parameters take any value", "Parameters.BelongToTheirFamilies"},
    {"destroying a camera does not close it", "Destroy.IgnoresNullAndLeavesAnOpenHandleAlone"},

    // ---- trace ----------------------------------------------------------------------------------------------------
    {"a dump of no bytes is a closing bracket alone", "HexDump.ShowsAtMostFourBytes"},
    {"a quiet loop sets the second switch", "Switches.AppInitTurnsTheSecondSwitchOnForAHostThatHadClearedIt"},
    {"cameras in parallel share one indentation", "ThreadedCameras.AreTracedWhileTheSwitchesChange"},

    // ---- discovery ------------------------------------------------------------------------------------------------
    {"the vendor does not matter", "Discovery.TakesCamerasInBusOrderAndSkipsTheRest"},
    {"one line of the trace has no end", "Discovery.SurvivesALockedOutBus"},
    {"device references are never given back", "Discovery.KnowsEveryModel"},
    {"a model stands twice in the table", "Discovery.KnowsEveryModel"},

    // ---- opening --------------------------------------------------------------------------------------------------
    {"a failed open releases a lock that it never took", "Open.AFailedLibusbOpenReleasesTheLockFirst"},
    {"detaching a kernel driver may fail", "OpenStandard.DetachesAKernelDriverAndIgnoresTheOutcome"},
    {"pause, flush and colour record follow a failed set-up",
     "OpenStandard.HoldsTheWholeConversationAndDescribesTheCamera"},
    {"a failed open keeps the fields it had filled", "OpenClassic.AFailureKeepsWhatWasFilledBefore"},
    {"modes survive closing and opening", "OpenClassic.HoldsTheWholeConversationAndDescribesTheCamera"},
    {"CLASSIC cameras are tried again without end", "OpenClassic.TriesAgainAfterFiveSecondsUntilTheCameraAnswers"},
    {"IIDC cameras get one millisecond after their reset", "OpenIidc.HoldsTheWholeConversationAndDescribesTheCamera"},
    {"a set guide port flag means there is none", "OpenStandard.TakesWhatTheCameraSays"},
    {"except on QUICKER cameras, where it means there is one", "OpenQuicker.TakesWhatTheDescriptionSays"},
    {"ADVANCED cameras never report a shutter", "OpenAdvanced.HoldsTheWholeConversationAndDescribesTheCamera"},
    {"ADVANCED cameras tell the most power first", "OpenAdvanced.HoldsTheWholeConversationAndDescribesTheCamera"},
    {"stale reply bytes reach line count and serial number", "OpenAdvanced.StaleBytesReachLineCountAndSerialNumber"},
    {"a wheel that never stops does not fail the open", "OpenAdvanced.TakesWhatTheCameraSays"},
    {"STANDARD cameras never report GPIO or an 8-bit mode", "OpenStandard.TakesWhatTheCameraSays"},
    {"two product ids have their own sensor size", "OpenStandard.TakesWhatTheCameraSays"},
    {"fields take what was read also when a read failed", "OpenStandard.FieldsTakeWhatAFailedReadLeft"},
    {"CLASSIC cameras have no accessories", "OpenClassic.HoldsTheWholeConversationAndDescribesTheCamera"},
    {"CLASSIC pixel counts are one too high; 0 wraps", "OpenClassic.TakesWhatTheCameraSays"},
    {"QUICKER pixel counts are signed", "OpenQuicker.TakesWhatTheDescriptionSays"},

    // ---- transport ------------------------------------------------------------------------------------------------
    {"a short write is a success", "BulkWrite.IsOneCallAndAShortOneCountsAsSuccess"},
    {"a failed write is traced with a blank at its end, a failed read without", "TraceLines.OfBridgePrimitives"},
    {"releasing a lock that nobody holds is harmless", "Lock.ReleaseIsHarmlessWhenNobodyHoldsIt"},
    {"the pause helper takes microseconds in spite of its name", "AppInit.PollsUpTo64Times"},
    {"EEPROM addresses wrap at 256", "CheckColour.DecodesTheRecord"},
    {"so the colour record lies at 1000", "CheckColour.DecodesTheRecord"},
    {"what arrived before a failure is stored", "GetImage.AFailureLowersTheTimeoutAllTheSameAndKeepsWhatArrived"},
    {"a 16-bit value with a reply goes low byte first", "BridgePrimitive.SendsTheseBytesAndEndsAtTheFirstFailure"},
    {"a QUICKER ping judges the number alone", "Ping.WantsTheNumberBackWithinItsTries"},
    {"flushing restores the host's timeout", "Flush.DrainsUntilTheTimeoutAndRestoresTheGlobalTimeout"},
    {"a failure of the last firmware record is not called incomplete", "WriteFirmware.FollowsTheTableAHostPutThere"},
    {"nobody learns of a failed register write", "OpenIidc.HoldsTheWholeConversationAndDescribesTheCamera"},

    // ---- exposure -------------------------------------------------------------------------------------------------
    {"a stuck shutter fails the abortion without a text", "AbortExposure.ClosesTheShutterOfStandardCamerasOnly"},
    {"only the width of ADVANCED images rounds up", "ImageSize.OnlyTheWidthOfAdvancedCamerasRoundsUp"},
    {"QUICKER exposures leave guiding as it is", "Exposure.HoldsTheWholeConversationOfEachFamily"},
    {"heights are compared with the width, and sums wrap", "ReadoutRegion.IsCheckedAgainstTheWidthBothWays"},
    {"a refused long readout releases a lock that it never took", "ReadoutRegion.IsCheckedAgainstTheWidthBothWays"},
    {"readCCD returns with the lock held, getImage releases it", "ThreadedCameras.KeepTheLockFromReadoutToImage"},
    {"IIDC refusals leave the text as it was", "ReadShortIidc.RefusesUnequalBinningAndLongTimesWithTheTextUnchanged"},
    {"the longest IIDC exposure sets no shutter", "ReadShortIidc.ChoosesTheFastestFrameRateThatHoldsTheShutterTime"},
    {"byte orders differ between families: ADVANCED high byte first", "ReadCommand.SendsCodeGeometryAndFlagsAndWaits"},
    {"CLASSIC coordinates count from 1 and end one past the last", "ReadCommand.SendsCodeGeometryAndFlagsAndWaits"},
    {"QUICKER rows are as far apart as the region is high", "GetImageQuicker.PutsRowRAtRTimesTheHeightOfTheRegion"},
    {"the precharge difference is doubled and offset", "GetImageQuicker.SubtractsPrechargeRowAfterRow"},
    {"one value less is moved, the last from behind the end", "GetImageAdvanced.DropsTheTwoLeadingValues"},
    {"and also after a failed transfer", "GetImageAdvanced.DropsThemAlsoAfterAFailure"},

    // ---- accessories ----------------------------------------------------------------------------------------------
    {"a sensor of type 0 ends the process", "TemperatureDeathTest.TypeZeroEndsTheProcessWhenConverted"},
    {"except on ADVANCED cameras", "Accessory.SendsTheseBytesAndEndsAtTheFirstFailureWithItsText"},
    {"a silent register reads -273.15 degrees and succeeds", "TemperatureIidc.IsTheLowTwelveBitsInTenthsOfAKelvin"},
    {"a sensor is called senzor", "TraceLines.OfOperationsThatTalkToTheCamera"},
    {"reading the cooler fails to set its status", "Accessory.SendsTheseBytesAndEndsAtTheFirstFailureWithItsText"},
    {"a null state suppresses target and power", "CoolingStatus.ANullStateSuppressesTheOthers"},
    {"cooler power is not clamped, and may divide by zero", "CoolingStatus.PowerFollowsItsBoundsWhereverTheyAre"},
    {"the set-point is traced under two names", "TraceLines.OfOperationsWithoutTraffic"},
    {"ADVANCED filter numbers lose their high byte", "Accessory.SendsTheseBytesAndEndsAtTheFirstFailureWithItsText"},
    {"a refused dark mode leaves the text as it was", "Modes.BelongToTheirFamilies"},
    {"the shutter is traced under a short name", "TraceLines.OfOperationsWithoutTraffic"},
    {"QUICKER closes both guide relays of a pair", "Accessory.SendsTheseBytesAndEndsAtTheFirstFailureWithItsText"},
    {"GPIO levels are stored after a failure too", "Accessory.SendsTheseBytesAndEndsAtTheFirstFailureWithItsText"},
    {"gain of other families succeeds with an error's text",
     "Gain.OfOtherFamiliesSucceedsWithoutTrafficAndLeavesAText"},
    {"reading the gain fails to set it", "GetGain.AsksAgainWithoutPausesUpToAHundredTimes"},
    {"setting the gain ends with the line of reading it", "SetGain.GivesUpAtTheHundredAndFirstAnswer"},
    {"one blank before an invalid parameter, two before no response", "SetGain.RefusesWhatIsOutOfRangeUnderTheLock"},
    {"the first valid gain record is never used", "SetGain.WritesTheSecondValidRecordBackWithOneHalfChanged"},
};

TEST(DeliberateBehaviour, IsPinnedByTestsThatExist)
{
    std::set<std::string> tests;
    const std::regex declaration("(^|\n)TEST(?:_F|_P)?\\((\\w+),\\s*(\\w+)\\)");
    for (const auto& entry : std::filesystem::recursive_directory_iterator(PROJECT_DIR "/tests")) {
        if (entry.path().extension() != ".cpp")
            continue;
        std::ifstream file(entry.path());
        const std::string text(std::istreambuf_iterator<char>(file), {});
        for (std::sregex_iterator match(text.begin(), text.end(), declaration), end; match != end; ++match)
            tests.insert((*match)[2].str() + "." + (*match)[3].str());
    }
    for (const Deliberate& row : TABLE)
        EXPECT_TRUE(tests.contains(row.test)) << row.behaviour << ": no test " << row.test;
}

}  // namespace
