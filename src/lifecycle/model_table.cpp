// SPDX-License-Identifier: MIT
#include "lifecycle/model_table.h"

#include "vornccd.h"

const vornccd::CameraModel vornccd::CAMERAS[] = {
    {"Vorn K01", 0xdf2e, QUICKER},  {"Vorn K02", 0xdf2f, QUICKER},
    {"Vorn K03", 0xdfab, QUICKER},  {"Vorn K04", 0xdfad, QUICKER},
    {"Vorn K05", 0xdfae, QUICKER},  {"Vorn K06", 0xdf29, STANDARD},
    {"Vorn K07", 0xdf2c, STANDARD}, {"Vorn K08", 0xdf2d, STANDARD},
    {"Vorn K09", 0xdf30, STANDARD}, {"Vorn K10", 0xdf31, STANDARD},
    {"Vorn K11", 0xdf33, STANDARD}, {"Vorn K12", 0xdf34, STANDARD},
    {"Vorn K13", 0xdf35, STANDARD}, {"Vorn K14", 0xdf36, STANDARD},
    {"Vorn K15", 0xdf3a, STANDARD}, {"Vorn K16", 0xdf3b, ADVANCED},
    {"Vorn K17", 0xdf3c, STANDARD}, {"Vorn K18", 0xdf3d, STANDARD},
    {"Vorn K19", 0xdf3e, STANDARD}, {"Vorn K20", 0xdf3f, ADVANCED},
    {"Vorn K17", 0xdf3c, STANDARD},  // deliberate: row 16 once more; the scan never gets here
    {"Vorn K21", 0xdfac, STANDARD}, {"Vorn K22", 0xdfb0, STANDARD},
    {"Vorn K23", 0xdfb4, STANDARD}, {"Vorn K24", 0xdfb5, STANDARD},
    {"Vorn K25", 0xdfb6, STANDARD}, {"Vorn K26", 0xdfb8, STANDARD},
    {"Vorn K27", 0xdfbb, ADVANCED}, {"Vorn XRC", 0x2004, IIDC},
    {"Vorn XRM", 0x2005, IIDC},     {"Vorn K30", 0xdf28, CLASSIC},
    {"Vorn K31", 0xdfb7, CLASSIC},  {"Vorn K32", 0xdfa8, CLASSIC},
    {"Vorn K33", 0xdf50, STANDARD}, {nullptr, 0, 0},
};
