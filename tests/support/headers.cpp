// SPDX-License-Identifier: MIT
// Nothing: vornccd_test_headers is here for its precompiled headers.
