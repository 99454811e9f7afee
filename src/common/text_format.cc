#include "common/text_format.h"

#include <stdio.h>

std::string StringVPrintf(const char* format, va_list args) {
  va_list measure;
  va_copy(measure, args);
  const int needed = vsnprintf(nullptr, 0, format, measure);
  va_end(measure);
  std::string text;
  if (needed > 0) {
    va_list write;
    va_copy(write, args);
    text.assign(static_cast<size_t>(needed) + 1, '\0');
    vsnprintf(&text[0], text.size(), format, write);
    va_end(write);
    text.resize(static_cast<size_t>(needed));
  }
  return text;
}

std::string StringPrintf(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string text = StringVPrintf(format, args);
  va_end(args);
  return text;
}
