#include "hw/Md380Vocoder.h"

#include <unicorn/unicorn.h>

#include <cstring>
#include <vector>

namespace zl::hw {

namespace {

constexpr uint64_t flashBase = 0x08000000;
constexpr uint64_t flashSize = 0x100000;
constexpr uint64_t firmwareBase = 0x0800C000;
constexpr uint64_t ramBase = 0x20000000;
constexpr uint64_t ramSize = 0x20000;
constexpr uint64_t ccmBase = 0x10000000;
constexpr uint64_t ccmSize = 0x20000;

constexpr uint32_t returnAddress = 0x08000001;
constexpr uint32_t stopAddress = 0x08000000;
constexpr uint32_t stackPointer = 0x2001FFE0;

constexpr uint32_t decoderEntry = 0x08051249;
constexpr uint32_t decoderBits = 0x20011C8E;
constexpr uint32_t decoderOut1 = 0x20011AA8;
constexpr uint32_t decoderOut2 = 0x20011B48;
constexpr uint32_t decoderWork = 0x20011224;

constexpr uint32_t encoderEntry = 0x08050D91;
constexpr uint32_t encoderBits = 0x2000DFC6;
constexpr uint32_t encoderIn1 = 0x2000DE82;
constexpr uint32_t encoderIn2 = 0x2000DF22;
constexpr uint32_t encoderWork = 0x2000C730;

const std::vector<uint8_t>& zeroBlock()
{
    static const std::vector<uint8_t> zeros(ramSize, 0);
    return zeros;
}

} // namespace

Md380Vocoder::~Md380Vocoder()
{
    close();
}

bool Md380Vocoder::init(const uint8_t* firmware, int64_t firmwareSize, const uint8_t* ram, int64_t ramSize_)
{
    if (engine)
        return true;
    if (!firmware || !ram || firmwareSize < 1 || firmwareSize > maxFirmwareSize || ramSize_ < 1 ||
        ramSize_ > maxRamSize)
        return false;
    uc_engine* uc = nullptr;
    if (uc_open(UC_ARCH_ARM, UC_MODE_THUMB, &uc) != UC_ERR_OK)
        return false;
    // The firmware's codec uses the floating point unit: grant coprocessor access and enable it.
    uint32_t cpacr = 0;
    bool ok = uc_reg_read(uc, UC_ARM_REG_C1_C0_2, &cpacr) == UC_ERR_OK;
    cpacr |= 0xF00000;
    uint32_t fpexc = 0x40000000;
    ok = ok && uc_reg_write(uc, UC_ARM_REG_C1_C0_2, &cpacr) == UC_ERR_OK &&
         uc_reg_write(uc, UC_ARM_REG_FPEXC, &fpexc) == UC_ERR_OK;
    ok = ok && uc_mem_map(uc, flashBase, flashSize, UC_PROT_ALL) == UC_ERR_OK &&
         uc_mem_map(uc, ramBase, ramSize, UC_PROT_ALL) == UC_ERR_OK &&
         uc_mem_map(uc, ccmBase, ccmSize, UC_PROT_ALL) == UC_ERR_OK &&
         uc_mem_write(uc, firmwareBase, firmware, static_cast<size_t>(firmwareSize)) == UC_ERR_OK &&
         uc_mem_write(uc, ramBase, ram, static_cast<size_t>(ramSize_)) == UC_ERR_OK;
    if (!ok) {
        uc_close(uc);
        return false;
    }
    engine = uc;
    ramImage = ram;
    ramImageSize = ramSize_;
    return true;
}

void Md380Vocoder::close()
{
    if (engine)
        uc_close(engine);
    engine = nullptr;
}

void Md380Vocoder::reset()
{
    if (!engine)
        return;
    const std::vector<uint8_t>& zeros = zeroBlock();
    uc_mem_write(engine, ramBase, zeros.data(), ramSize);
    uc_mem_write(engine, ccmBase, zeros.data(), ccmSize);
    uc_mem_write(engine, ramBase, ramImage, static_cast<size_t>(ramImageSize));
}

bool Md380Vocoder::call(uint32_t entry, const uint32_t* args, int count)
{
    static constexpr int registerArgs[] = {UC_ARM_REG_R0, UC_ARM_REG_R1, UC_ARM_REG_R2, UC_ARM_REG_R3};
    for (int i = 0; i < count && i < 4; ++i) {
        if (uc_reg_write(engine, registerArgs[i], &args[i]) != UC_ERR_OK)
            return false;
    }
    if (count > 4 && uc_mem_write(engine, stackPointer, args + 4, sizeof(uint32_t) * (count - 4)) != UC_ERR_OK)
        return false;
    const uint32_t sp = stackPointer;
    const uint32_t lr = returnAddress;
    if (uc_reg_write(engine, UC_ARM_REG_SP, &sp) != UC_ERR_OK || uc_reg_write(engine, UC_ARM_REG_LR, &lr) != UC_ERR_OK)
        return false;
    return uc_emu_start(engine, entry, stopAddress, 0, 0) == UC_ERR_OK;
}

bool Md380Vocoder::decode(const uint8_t in[7], uint8_t out[320])
{
    if (!engine)
        return false;
    uint16_t bits[49];
    for (int i = 0; i < 49; ++i)
        bits[i] = (in[i >> 3] >> (7 - (i & 7))) & 1;
    if (uc_mem_write(engine, decoderBits, bits, sizeof bits) != UC_ERR_OK)
        return false;
    const uint32_t first[] = {decoderOut1, 80, decoderBits, 0, 0, 0, decoderWork};
    const uint32_t second[] = {decoderOut2, 80, decoderBits, 0, 0, 1, decoderWork};
    if (!call(decoderEntry, first, 7) || !call(decoderEntry, second, 7))
        return false;
    return uc_mem_read(engine, decoderOut1, out, 160) == UC_ERR_OK &&
           uc_mem_read(engine, decoderOut2, out + 160, 160) == UC_ERR_OK;
}

bool Md380Vocoder::encode(const uint8_t in[320], uint8_t out[7])
{
    if (!engine)
        return false;
    static const uint8_t zeroBits[50] = {};
    if (uc_mem_write(engine, encoderBits, zeroBits, sizeof zeroBits) != UC_ERR_OK ||
        uc_mem_write(engine, encoderIn1, in, 160) != UC_ERR_OK ||
        uc_mem_write(engine, encoderIn2, in + 160, 160) != UC_ERR_OK)
        return false;
    const uint32_t first[] = {encoderBits, 0, encoderIn1, 80, 0x1840, 0, 0x2000, encoderWork};
    const uint32_t second[] = {encoderBits, 0, encoderIn2, 80, 0x1840, 1, 0x2000, encoderWork};
    if (!call(encoderEntry, first, 8) || !call(encoderEntry, second, 8))
        return false;
    uint16_t bits[49];
    if (uc_mem_read(engine, encoderBits, bits, sizeof bits) != UC_ERR_OK)
        return false;
    std::memset(out, 0, 7);
    // Bit 0 of each word counts; the last word counts whole.
    for (int i = 0; i < 49; ++i) {
        if (i == 48 ? bits[i] != 0 : (bits[i] & 1) != 0)
            out[i >> 3] |= static_cast<uint8_t>(0x80 >> (i & 7));
    }
    return true;
}

} // namespace zl::hw
