// What only devinfo does on the flash: a save without a copy where the
// partition has no room for one, and the recovery at start. Apart from
// flash_save.cpp so that hw_start, which does neither, links neither.
#include <cstring>

#include "devinfo/flash_save.h"

SaveResult save_in_place(Flash &flash, FlashState &st, const dev_info &rec)
{
    return write_record_block(flash, st, rec) ? SaveResult::saved : SaveResult::unsure;
}

bool recover_flash(Flash &flash, FlashState &st)
{
    if (st.decision.action != Recovery::restore)
        return true;
    std::memcpy(st.image, st.current, st.geo.erase_size);
    return write_block(flash, st, 0);
}
