// The board interface and the one board object of this build.
#pragma once

#include <cstdint>
#include <cstdlib>

#include "ax630c_qm/gpio.h"
#include "devinfo/devinfo.h"

// What start-up and boot need of a board. Results are 0 for success.
class CDevice {
public:
    // 0 when the board can start; anything else keeps start-up showing
    // status 4 for ever.
    virtual int CheckDevice() = 0;
    // Fills the caller's 24 bytes with the board's GUID. 0.
    virtual int GetGuid(GUID *guid) = 0;
    // Replaces the store path unless `path` is empty. 0 always.
    virtual int SetDevFile(const char *path) = 0;
    // Reads the record from the store; bytes not read keep the caller's.
    // 0 on success, -1 on failure.
    virtual int ReadDevInfo(dev_info *rec) = 0;
    // Writes all 280 bytes to the store, then sets its MAC on eth0. 0 on
    // success, -1 when the save failed (nothing else is done then).
    virtual int SaveDevInfo(const dev_info *rec) = 0;
    // Leaves the work-mode marker /firmware/<id in hex>. 0 always.
    virtual int CreateWorkModeID(std::uint32_t id) = 0;
    // Switches the board's indicator on (1) or off (0).
    virtual void Indicator(int on) = 0;
    // Plays the beep pattern of a status code. 0 always.
    virtual int Buzzer(std::int32_t code) = 0;
    virtual ~CDevice() {}
    // Board objects come from CreateDevice, which takes their memory from
    // malloc: deleting one through this interface gives it back to free,
    // never to the C++ runtime's deallocator.
    static void operator delete(void *p) { std::free(p); }
};

// Compiled-in constants of the board.
struct BoardProfile {
    const char *board_id_text; // board id in hex without prefix: own marker name
    GpioLine signal_line;      // the line the beep patterns drive
};

// The AX620Q camera board: group 255 lies outside the SoC's GPIO groups,
// so its patterns keep only their timing.
constexpr BoardProfile kAX620QProfile = {"851", {255, 255, 1}};

constexpr std::size_t kDevFileSize = 128;

class CAX620Q : public CDevice {
public:
    // Zero GUID, default store "/dev/mtdblock3", and g_signal_line pointed
    // at the profile's line.
    CAX620Q();

    int CheckDevice() override;
    int GetGuid(GUID *out) override;
    int SetDevFile(const char *path) override;
    int ReadDevInfo(dev_info *rec) override;
    int SaveDevInfo(const dev_info *rec) override;
    int CreateWorkModeID(std::uint32_t id) override;
    void Indicator(int on) override;
    int Buzzer(std::int32_t code) override;

    // The store path the next read or save uses.
    const char *dev_file_path() const { return dev_file; }

private:
    GUID guid;
    char dev_file[kDevFileSize];
};

// The factory: always a new CAX620Q on the heap (the name is not used).
// Null when it cannot be allocated.
CDevice *CreateDevice(const char *name);
