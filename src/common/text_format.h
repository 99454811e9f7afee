// printf into a std::string, for the short cells and details of reports.
#ifndef VRX_COMMON_TEXT_FORMAT_H_
#define VRX_COMMON_TEXT_FORMAT_H_

#include <stdarg.h>

#include <string>

// The whole formatted text, however long. format is always a literal of the
// program; outside text goes in as an argument.
std::string StringPrintf(const char* format, ...)
    __attribute__((format(printf, 1, 2)));

// The same over a va_list (not consumed: the caller still ends it).
std::string StringVPrintf(const char* format, va_list args)
    __attribute__((format(printf, 1, 0)));

#endif  // VRX_COMMON_TEXT_FORMAT_H_
