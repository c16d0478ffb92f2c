#pragma once

#include <cstdint>

struct uc_struct;

namespace zl::hw {

// The AMBE encoder and decoder of an MD380 handheld's firmware (version d02.032), run in
// the Unicorn ARM emulator. The images are the user's own; every address belongs to d02.032.
// One engine belongs to one Dv3000 and runs on that object's thread only.
class Md380Vocoder {
public:
    static constexpr int64_t maxFirmwareSize = 0xF4000;
    static constexpr int64_t maxRamSize = 0x20000;

    Md380Vocoder() = default;
    ~Md380Vocoder();
    Md380Vocoder(const Md380Vocoder&) = delete;
    Md380Vocoder& operator=(const Md380Vocoder&) = delete;

    // The RAM image is not copied: it must outlive the engine. True at once if already open.
    bool init(const uint8_t* firmware, int64_t firmwareSize, const uint8_t* ram, int64_t ramSize);
    void close();
    bool isOpen() const { return engine != nullptr; }
    // Drops all codec history: main and core-coupled RAM back to their initial contents.
    void reset();
    // One 20 ms frame: 7 bytes of 49-bit parameters to 160 samples (320 bytes, host order).
    bool decode(const uint8_t in[7], uint8_t out[320]);
    // 160 samples (320 bytes, host order) to a 49-bit frame in 7 bytes.
    bool encode(const uint8_t in[320], uint8_t out[7]);

private:
    bool call(uint32_t entry, const uint32_t* args, int count);

    uc_struct* engine = nullptr;
    const uint8_t* ramImage = nullptr;
    int64_t ramImageSize = 0;
};

} // namespace zl::hw
