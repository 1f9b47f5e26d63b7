// How the record library tells what a save did and why an operation did
// not do what it was asked. It never prints: each program words the step
// its own way (devinfo on standard error, hw_start in its debug lines).
#pragma once

struct StoreError {
    // What failed or was refused, a short text ("lock", "copy erase",
    // "rename", "no erase block for a copy"); null while all is well.
    const char *step = nullptr;
    int error = 0; // errno of the failed call; 0 for a refusal

    // Records `step` and `error_` (an errno, or 0); returns false, so a
    // failing path can end with `return err->set(...)`.
    bool set(const char *what, int error_);
};

// What a save did.
enum class SaveResult {
    saved,    // the new record is stored, read back and checked
    unopened, // the store, or a temporary file beside it, could not be
              // opened: nothing was written
    kept,     // failed before the store was touched: it holds what it held
    unsure,   // failed after the store was written: it may hold the new
              // record (flash: in the copy at least) or the old one
};
