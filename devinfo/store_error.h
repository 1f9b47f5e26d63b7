// How the record library tells why an operation did not do what it was
// asked. It never prints: each program words the step its own way
// (devinfo on standard error, hw_start in its debug lines).
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
