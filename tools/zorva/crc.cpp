// SPDX-License-Identifier: GPL-2.0
#include "crc.h"

#include <array>

namespace zorva
{
namespace
{

constexpr uint32_t polynomial = 0x04c11db7;
constexpr size_t slices = 8;

using table = std::array<std::array<uint32_t, 256>, slices>;

/* tables[n][b]: what the byte b does to the sum n bytes later. */
constexpr table make_tables()
{
	table made{};

	for (uint32_t byte = 0; byte < 256; ++byte) {
		uint32_t crc = byte << 24;

		for (int bit = 0; bit < 8; ++bit)
			crc = crc << 1 ^ (crc >> 31 ? polynomial : 0);
		made[0][byte] = crc;
	}
	for (size_t n = 1; n < slices; ++n)
		for (size_t byte = 0; byte < 256; ++byte) {
			const uint32_t before = made[n - 1][byte];

			made[n][byte] = before << 8 ^ made[0][before >> 24];
		}
	return made;
}

constexpr table tables = make_tables();

uint32_t add_byte(uint32_t crc, unsigned char byte)
{
	return crc << 8 ^ tables[0][crc >> 24 ^ byte];
}

} // namespace

void checksum::add(std::string_view text)
{
	const auto *p = reinterpret_cast<const unsigned char *>(text.data());
	size_t left = text.size();
	uint32_t crc = crc_;

	for (; left >= slices; left -= slices, p += slices) {
		crc = tables[7][crc >> 24 ^ p[0]] ^
		      tables[6][(crc >> 16 & 0xff) ^ p[1]] ^
		      tables[5][(crc >> 8 & 0xff) ^ p[2]] ^
		      tables[4][(crc & 0xff) ^ p[3]] ^ tables[3][p[4]] ^
		      tables[2][p[5]] ^ tables[1][p[6]] ^ tables[0][p[7]];
	}
	for (; left; --left)
		crc = add_byte(crc, *p++);
	crc_ = crc;
	bytes_ += text.size();
}

/* The length comes last, its lowest byte first. */
uint32_t checksum::value() const
{
	uint32_t crc = crc_;

	for (uint64_t length = bytes_; length; length >>= 8)
		crc = add_byte(crc, static_cast<unsigned char>(length));
	return ~crc;
}

} // namespace zorva
