// What every fuzzer's set-up shares: quiet logging that still stops on GLib's
// failed-precondition reports, and the radar classes learnt from a provider in-process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The service's log lines are dropped (bad input is logged, which is no fault); a
// critical report, GLib's sign of a broken precondition, aborts so the fuzzer sees it.
void fuzz_quiet_logs(void);

// Serves the radar's six classification names from this process and runs the scene
// intake's set-up, so that scenes are classified as on the unit.
void fuzz_learn_radar_classes(void);

// The input as a NUL-terminated text (the first NUL ends it, as it would a C string).
std::string fuzz_text(const uint8_t *data, size_t size);
