// The start-up sequence on a ready board, the status display on a board
// that is not, and the boot sequence that publishes the identity and
// starts the application programs.
#pragma once

#include <cstdint>

#include "app/args.h"
#include "ax630c_qm/device.h"
#include "log/log.h"

// The store path from the command line; empty means the board's default.
extern char dev_file_path[kPathSize];

// Hands the store path to the board (when one was given), reads the
// record into a zero-filled dev_info, makes eth0 carry its MAC and boots.
// A record that cannot be read leaves the zero bytes in place; every step
// runs. Returns 0.
int start_device(CDevice *dev);

// Shows a status code through the board: one pass of Buzzer on/off and
// one of Indicator on/off per pattern character, each wait through
// `sleep_ms`. Codes above 12 (compared unsigned) only write a debug line.
// Returns 0.
int show_result(std::uint32_t code, CDevice *dev, int (*sleep_ms)(std::uint32_t) = msleep);

// Publishes the identity in shared memory, leaves the work-mode marker
// and starts the DDNS client (board name as its dev_type, one shell word)
// and the GUI in the background, in that order. Returns 0.
int boot(std::uint32_t run_mode, const dev_info *rec, CDevice *dev);
