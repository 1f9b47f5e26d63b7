#include "devinfo/dev_info.h"

#include <cstring>

void read_text_field(const char (&field)[kTextFieldSize], char (&out)[kTextFieldSize])
{
    std::memset(out, 0, sizeof out);
    const void *nul = std::memchr(field, '\0', sizeof field);
    if (nul == nullptr)
        return;
    std::memcpy(out, field, static_cast<std::size_t>(static_cast<const char *>(nul) - field));
}

void write_text_field(char (&field)[kTextFieldSize], const char *text)
{
    std::memset(field, 0, sizeof field);
    std::strncpy(field, text, sizeof field - 1);
}
