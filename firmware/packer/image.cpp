// SPDX-License-Identifier: MIT
#include "image.h"

#include <algorithm>
#include <cstdio>

#include "text.h"

namespace firmware {

namespace {

bool isFiller(uint8_t value)
{
    return value == 0x00 || value == 0xFF;
}

}  // namespace

bool isVectorGap(size_t address)
{
    return address < CODE_START && std::none_of(VECTORS.begin(), VECTORS.end(), [address](const Vector& vector) {
               return address >= vector.address && address < size_t{vector.address} + vector.length;
           });
}

std::string Image::define(uint64_t where, uint8_t value)
{
    if (where >= IMAGE_LENGTH)
        return format(
            "a byte at 0x%04llX lies beyond 0x1A97, the last address in the table; the program must be smaller",
            static_cast<unsigned long long>(where));
    const auto address = static_cast<size_t>(where);
    if (isVectorGap(address))
        return format(
            "a byte at 0x%04zX lies between two interrupt vectors, where the table has no room; start the "
            "code at 0x002E",
            address);
    if (defined_[address] && bytes_[address] != value)
        return format("the byte at 0x%04zX is given twice, as 0x%02X and as 0x%02X; two parts of the program overlap",
                      address, unsigned{bytes_[address]}, unsigned{value});
    bytes_[address] = value;
    defined_[address] = true;
    return {};
}

std::string Image::checkVectors() const
{
    for (const Vector& vector : VECTORS) {
        for (size_t i = 0; i < vector.length; ++i) {
            const size_t address = vector.address + i;
            if (!defines(address))
                return format(
                    "nothing at 0x%04zX, which belongs to the vector at 0x%04X (%s); define it in the program", address,
                    unsigned{vector.address}, vector.name);
            if (i < vector.fixedLength && at(address) != vector.code[i])
                return format("0x%02X at 0x%04zX, but the vector at 0x%04X (%s) needs 0x%02X there; correct the vector",
                              unsigned{at(address)}, address, unsigned{vector.address}, vector.name,
                              unsigned{vector.code[i]});
        }
    }
    return {};
}

void Image::fillWithRestarts()
{
    constexpr std::array<uint8_t, 3> RESTART = {0x02, 0x00, 0x00};  // ljmp 0x0000
    size_t address = CODE_START;
    while (address < IMAGE_LENGTH) {
        if (defined_[address]) {
            ++address;
            continue;
        }
        size_t end = address;
        while (end < IMAGE_LENGTH && !defined_[end])
            ++end;
        for (const size_t odd = (end - address) % RESTART.size(), start = address; address < end; ++address) {
            const size_t place = address - start;
            bytes_[address] = place < odd ? uint8_t{0x00} : RESTART[(place - odd) % RESTART.size()];
            defined_[address] = true;
        }
    }
}

Result<Image> parseBinary(std::span<const uint8_t> bytes)
{
    Image image;
    for (size_t address = 0; address < bytes.size(); ++address) {
        if ((isVectorGap(address) || address >= IMAGE_LENGTH) && isFiller(bytes[address]))
            continue;
        const std::string error = image.define(address, bytes[address]);
        if (!error.empty())
            return Result<Image>::failure(error);
    }
    return image;
}

}  // namespace firmware
