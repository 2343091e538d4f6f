// Text forms of fetched numbers, dates and times and of the packed row's entry header,
// written without the printf machinery. Each function writes exactly the bytes that the
// printf format named beside it writes for the same arguments, adds a NUL and returns the
// length without the NUL. The buffer must hold the matching kFormat...Size bytes.
#pragma once

#include <cstdint>

namespace qz {

// Buffer sizes, NUL included, for the longest text each function can write.
constexpr int kFormatIntSize = 12;          // "-2147483648"
constexpr int kFormatDoubleSize = 22;       // "-1.2345678901234e-308"
constexpr int kFormatDateSize = 17;         // "-32768" "65535" "65535"
constexpr int kFormatTimeSize = 16;         // "65535" three times
constexpr int kFormatTimestampSize = 33;    // a date, a blank and a time
constexpr int kFormatXpackHeaderSize = 26;  // "~-2147483648~-2147483648~"

// "%d".
int format_int(char *out, std::int32_t v);

// "%.14g": fixed or exponent form, trailing zeros dropped, "inf", "-inf", "nan" and
// "-nan" (the sign of a NaN is printed as glibc prints it).
int format_g14(char *out, double d);

// "%04d%02d%02d" with the year, the month and the day.
int format_date(char *out, std::int16_t year, std::uint16_t month, std::uint16_t day);

// "%02d%02d%02d" with the hour, the minute and the second.
int format_time(char *out, std::uint16_t hour, std::uint16_t minute, std::uint16_t second);

// "%04d%02d%02d %02d%02d%02d": a date, a blank, a time.
int format_timestamp(char *out, std::int16_t year, std::uint16_t month, std::uint16_t day,
                     std::uint16_t hour, std::uint16_t minute, std::uint16_t second);

// "%c%d%c%d%c" with '~', number, '~', value_len, '~': the header of a packed row entry.
int format_xpack_header(char *out, std::int32_t number, std::int32_t value_len);

}  // namespace qz
