// Version tables: the BMC's current firmware against an image, before and
// after an update.
#include <stdio.h>
#include <string.h>

#include <string>

#include "common/text_format.h"
#include "output/output.h"

namespace {

constexpr uint32_t kProbedDeviceType = 0xAE;

// The line format of a table, made from its column widths so that every
// line of the table shares them.
std::string LineFormat4(unsigned w1, unsigned w2, unsigned w3, unsigned w4) {
  char format[64];
  snprintf(format, sizeof(format), "   %%-%us%%-%us%%-%us%%-%us\n", w1, w2, w3,
           w4);
  return format;
}

std::string LineFormat3(unsigned width) {
  char format[64];
  snprintf(format, sizeof(format), "   %%-%us%%-%us%%-%us\n", width, width,
           width);
  return format;
}

// Fills a table line. The format is one built above from the program's own
// widths; every cell, the device name included, is an argument.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
std::string FormatLine(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string line = StringVPrintf(format, args);
  va_end(args);
  return line;
}
#pragma GCC diagnostic pop

std::string DeviceName(const sBMCInformationTag* bmc) {
  return std::string(bmc->achPlatformName,
                     strnlen(bmc->achPlatformName,
                             sizeof(bmc->achPlatformName)));
}

// " name " padded with dots to one less than the column, then a blank; a
// name that is already long enough gets only the blank.
std::string NameCell(const sBMCInformationTag* bmc, unsigned width) {
  std::string cell = " " + DeviceName(bmc) + " ";
  while (static_cast<uint8_t>(cell.size()) < width - 1) cell += '.';
  cell += ' ';
  return cell;
}

std::string Version(const uint8_t* fw) { return StringPrintf("%u.%u", fw[0], fw[1]); }

unsigned Revision16(const uint8_t* fw) { return fw[2] * 256u + fw[3]; }

std::string Revision(const uint8_t* fw) {
  return StringPrintf("%u", Revision16(fw));
}

std::string Bootloader(const uint8_t* version) {
  return StringPrintf("%X.%X.%X", version[0], version[1], version[2]);
}

std::string MajorHex(const sBMCInformationTag* bmc) {
  return StringPrintf("0x%02X", bmc->au8FwRevision[0]);
}

std::string MinorHex(const sBMCInformationTag* bmc) {
  uint8_t minor = bmc->au8FwRevision[1];
  return StringPrintf("0x%X%X", minor >> 4, minor & 0x0F);
}

void PrintLine(TOutputMessageHandle* out, const std::string& format,
               const std::string& a, const std::string& b,
               const std::string& c, const std::string& d) {
  out->RedirectMessage(eRedirectNormal, "%s",
                       FormatLine(format.c_str(), a.c_str(), b.c_str(), c.c_str(),
                                  d.c_str())
                           .c_str());
}

void PrintLine(TOutputMessageHandle* out, const std::string& format,
               const std::string& a, const std::string& b,
               const std::string& c) {
  out->RedirectMessage(
      eRedirectNormal, "%s",
      FormatLine(format.c_str(), a.c_str(), b.c_str(), c.c_str()).c_str());
}

}  // namespace

void TOutputMessageHandle::OutputFirmwareRevisions(
    const sBMCInformationTag* bmc, const sImageHeaderTag* image) {
  if (bmc == nullptr) return;
  bool bootloader = bmc->u8HasBootloader != 0;
  unsigned nameWidth = bootloader ? 28 : 34;
  std::string format =
      bootloader ? LineFormat4(28, 22, 13, 13) : LineFormat4(34, 20, 10, 10);
  const std::string na = " N/A";

  RedirectMessage(eRedirectNormal, "\n");
  PrintLine(this, format, "Firmware Version", "", "Current", "Image");
  if (bmc->u32DeviceType == kProbedDeviceType) {
    PrintLine(this, format, NameCell(bmc, nameWidth), "Firmware Version",
              Version(bmc->au8FwRevision),
              image != nullptr ? Version(image->au8FwRevision) : na);
    PrintLine(this, format, "", "Firmware Revision",
              Revision(bmc->au8FwRevision),
              image != nullptr ? Revision(image->au8FwRevision) : na);
    if (bootloader) {
      bool imageBootloader = image != nullptr && image->u8HasBootloader != 0;
      PrintLine(this, format, "", "Bootloader version",
                Bootloader(bmc->au8BootloaderVersion),
                imageBootloader ? Bootloader(image->au8BootloaderVersion)
                                : na);
    }
  }
  RedirectMessage(eRedirectNormal, "\n");
}

void TOutputMessageHandle::OutputFirmwareRevisionsAfterFwUpdate(
    const sImageHeaderTag* image, const sBMCInformationTag* bmc) {
  if (bmc == nullptr) return;
  TOutputMessageHandle* out =
      G_pOutputMessageHandle != nullptr ? G_pOutputMessageHandle : this;
  bool bootloader = bmc->u8HasBootloader != 0;
  std::string format = LineFormat3(bootloader ? 24 : 20);
  const std::string na = "N/A";

  PrintLine(out, format, "", DeviceName(bmc), "Image");
  PrintLine(out, format, "Firmware Version",
            "  " + Version(bmc->au8FwRevision),
            image != nullptr ? Version(image->au8FwRevision) : na);
  PrintLine(out, format, "Firmware Revision",
            "  " + Revision(bmc->au8FwRevision),
            image != nullptr ? Revision(image->au8FwRevision) : na);
  if (bootloader) {
    bool imageBootloader = image != nullptr && image->u8HasBootloader != 0;
    PrintLine(out, format, "Bootloader version",
              "  " + Bootloader(bmc->au8BootloaderVersion),
              imageBootloader ? Bootloader(image->au8BootloaderVersion) : na);
  }
}

void TOutputMessageHandle::OutputBMCFirmwareRevisions(
    const sBMCInformationTag* bmc) {
  if (bmc == nullptr) return;
  std::string format = LineFormat4(34, 20, 10, 10);
  RedirectMessage(eRedirectNormal, "\n");
  PrintLine(this, format, "Firmware Version", "", "", "");
  if (bmc->u32DeviceType == kProbedDeviceType) {
    PrintLine(this, format, NameCell(bmc, 34), "Major Revision", MajorHex(bmc),
              "");
    PrintLine(this, format, "", "Minor Revision", MinorHex(bmc), "");
  }
  RedirectMessage(eRedirectNormal, "\n");
}

void TOutputMessageHandle::OutputBMCFirmwareRevisionsAfterRemoteFwUpdate(
    const sBMCInformationTag* oldInfo, const sBMCInformationTag* newInfo) {
  if (oldInfo == nullptr || newInfo == nullptr) return;
  std::string format = LineFormat4(34, 20, 10, 10);
  RedirectMessage(eRedirectNormal, "\n");
  PrintLine(this, format, "Firmware Version", "", "Old", "New");
  if (oldInfo->u32DeviceType == kProbedDeviceType) {
    PrintLine(this, format, NameCell(oldInfo, 34), "Major Revision",
              MajorHex(oldInfo), MajorHex(newInfo));
    PrintLine(this, format, "", "Minor Revision", MinorHex(oldInfo),
              MinorHex(newInfo));
  }
  RedirectMessage(eRedirectNormal, "\n");
}
