#include "devinfo/record_error.h"

bool StoreError::set(const char *what, int error_)
{
    step = what;
    error = error_;
    return false;
}
