#include "devinfo/record.h"

#include <cstring>

#include "base/text.h"

void read_text_field(const char (&field)[kTextFieldSize], char (&out)[kTextFieldSize])
{
    std::memset(out, 0, sizeof out);
    std::memcpy(out, field, text_length(field));
}

void write_text_field(char (&field)[kTextFieldSize], const char *text)
{
    std::memset(field, 0, sizeof field);
    std::strncpy(field, text, sizeof field - 1);
}
