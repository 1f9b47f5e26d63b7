// What only devinfo does on the flash: a save without a copy where the
// partition has no room for one, and the recovery at start. Apart from
// flash_save.cpp so that hw_start, which does neither, links neither.
#include <cerrno>
#include <cstring>

#include "devinfo/flash_save.h"

SaveResult save_in_place(Flash &flash, FlashState &st, const dev_info &rec)
{
    say_line(st.say,
             "%s: no erase block for a copy: writing the record in place; this save is NOT "
             "protected against a power cut",
             st.name);
    const char *step = write_record_block(flash, st, rec);
    if (step == nullptr)
        return SaveResult::saved;
    say_line(st.say, "cannot save the record to %s: %s: %s", st.name, step, std::strerror(errno));
    return SaveResult::unsure;
}

bool recover_flash(Flash &flash, FlashState &st, bool *wrote)
{
    const char *name = st.name;
    *wrote = false;
    const Decision &d = st.decision;
    switch (d.action) {
    case Recovery::nothing:
        return true;
    case Recovery::keep:
        say_line(st.say,
                 "%s: the record differs from the copy saved at sequence %u; kept the record (the "
                 "next save rewrites the copy)",
                 name, d.copy.sequence);
        return true;
    case Recovery::none_whole:
        say_line(st.say,
                 "%s: no whole record: the record has no magic and there is no valid copy; left "
                 "as it is",
                 name);
        return false;
    case Recovery::restore:
        break;
    }
    std::memcpy(st.image, st.current, st.geo.erase_size);
    *wrote = true;
    const char *step = write_block(flash, st, 0);
    if (step != nullptr) {
        say_line(st.say, "%s: cannot restore the record from the copy saved at sequence %u: %s: %s",
                 name, d.copy.sequence, step, std::strerror(errno));
        return false;
    }
    say_line(st.say, "%s: record was %s; restored the copy saved at sequence %u", name,
             d.erased ? "erased" : "torn", d.copy.sequence);
    return true;
}
