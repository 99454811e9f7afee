#include "output/history.h"

#include <stdio.h>
#include <stdlib.h>

#include <memory>
#include <vector>

#include "common/text_format.h"
#include "output/output.h"
#include "output/xml_text.h"
#include "platform/files.h"
#include "platform/platform.h"

namespace {

const char kDefaultPath[] = "/var/lib/vrxfwul/history";
const char kFormatVersion[] = "1";
const size_t kFieldCount = 12;
// A record line is short; a longer one is no record of ours.
const int kLineCapacity = 8192;

std::string Escape(const std::string& text) {
  std::string out;
  for (char c : text) {
    const unsigned char u = static_cast<unsigned char>(c);
    if (c == '\\')
      out += "\\\\";
    else if (c == '\t')
      out += "\\t";
    else if (c == '\n')
      out += "\\n";
    else if (u < 0x20 || u == 0x7F)
      out += StringPrintf("\\x%02x", u);
    else
      out += c;
  }
  return out;
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool Unescape(const std::string& text, std::string* out) {
  out->clear();
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      *out += text[i];
      continue;
    }
    if (++i >= text.size()) return false;
    switch (text[i]) {
      case '\\': *out += '\\'; break;
      case 't': *out += '\t'; break;
      case 'n': *out += '\n'; break;
      case 'x': {
        if (i + 2 >= text.size()) return false;
        const int high = HexValue(text[i + 1]);
        const int low = HexValue(text[i + 2]);
        if (high < 0 || low < 0) return false;
        *out += static_cast<char>(high * 16 + low);
        i += 2;
        break;
      }
      default: return false;
    }
  }
  return true;
}

std::string OrDash(const std::string& text) { return text.empty() ? "-" : text; }
std::string DashIsEmpty(const std::string& text) { return text == "-" ? "" : text; }

bool ParseNumber(const std::string& text, long* value) {
  if (text.empty() || text.size() > 12) return false;
  size_t i = text[0] == '-' ? 1 : 0;
  if (i == text.size()) return false;
  for (; i < text.size(); ++i)
    if (text[i] < '0' || text[i] > '9') return false;
  *value = strtol(text.c_str(), nullptr, 10);
  return true;
}

// The last width characters of text, marked as cut at the front.
std::string Tail(const std::string& text, size_t width) {
  if (text.size() <= width) return text;
  return "..." + text.substr(text.size() - (width - 3));
}

struct ReadResult {
  std::vector<sHistoryRecordTag> records;
  int malformed = 0;
};

// Reads the history; false with why when the file is refused or unreadable.
// A missing file is an empty history.
bool ReadHistory(const std::string& path, ReadResult* result, std::string* why,
                 bool* missing) {
  platform::Env* env = platform::GetEnv();
  platform::FileInfo info;
  *missing = false;
  if (!env->LinkStat(path, &info)) {
    *missing = true;
    return true;
  }
  if (info.type == platform::FileType::kSymlink) {
    *why = "is a symbolic link; the history is not read through one";
    return false;
  }
  if (info.type != platform::FileType::kRegular) {
    *why = "is not a regular file";
    return false;
  }
  std::unique_ptr<platform::File> file = env->OpenForRead(path);
  if (file == nullptr) {
    *why = "cannot be opened";
    return false;
  }
  std::vector<char> line(kLineCapacity);
  std::string pending;
  while (file->ReadLine(line.data(), kLineCapacity)) {
    pending += line.data();
    if (pending.empty() || pending.back() != '\n') {
      // A line past the capacity is read on, then dropped as malformed.
      if (pending.size() < static_cast<size_t>(kLineCapacity) * 4) continue;
    }
    if (!pending.empty() && pending.back() == '\n') pending.pop_back();
    sHistoryRecordTag record;
    if (ParseHistoryRecord(pending, &record))
      result->records.push_back(record);
    else
      ++result->malformed;
    pending.clear();
  }
  if (!pending.empty()) {
    sHistoryRecordTag record;
    if (ParseHistoryRecord(pending, &record))
      result->records.push_back(record);
    else
      ++result->malformed;
  }
  file->Close();
  return true;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
// One row; kRow is the program's own format, every cell an argument.
const char kRow[] = "   %-20s  %-15s  %3s  %-28s  %-8s  %-10s  %-10s  %4s  %5s  %s\n";
std::string Row(const std::string& time, const std::string& target,
                const std::string& entity, const std::string& source,
                const std::string& sha, const std::string& before,
                const std::string& after, const std::string& rc,
                const std::string& seconds, const std::string& signal) {
  return StringPrintf(kRow, time.c_str(), target.c_str(), entity.c_str(),
                      source.c_str(), sha.c_str(), before.c_str(), after.c_str(),
                      rc.c_str(), seconds.c_str(), signal.c_str());
}
#pragma GCC diagnostic pop

void PrintTable(const std::string& path, const ReadResult& result) {
  Out().RedirectMessage(eRedirectNormal, "\n   Firmware update history: %s\n",
                        path.c_str());
  if (result.records.empty()) {
    Out().RedirectMessage(eRedirectNormal,
                          "   No firmware update recorded in %s\n", path.c_str());
  } else {
    Out().RedirectMessage(
        eRedirectNormal, "%s",
        Row("Started (UTC)", "Target", "Ent", "Image or URI", "SHA-256",
            "BMC before", "BMC after", "Exit", "Secs", "Interrupted")
            .c_str());
    for (const sHistoryRecordTag& r : result.records) {
      Out().RedirectMessage(
          eRedirectNormal, "%s",
          // Cells show control characters escaped, as the file holds them.
          Row(Tail(Escape(r.time), 20), Tail(Escape(r.target), 15),
              std::to_string(r.entity), Tail(Escape(r.source), 28), r.sha256.empty() ? "-" : r.sha256.substr(0, 8),
              Tail(OrDash(Escape(r.versionBefore)), 10),
              Tail(OrDash(Escape(r.versionAfter)), 10), std::to_string(r.returnCode),
              std::to_string(r.seconds), OrDash(Escape(r.interruptedBy)))
              .c_str());
    }
  }
  if (result.malformed > 0)
    Out().RedirectMessage(eRedirectNormal, "   %d malformed %s skipped\n",
                          result.malformed,
                          result.malformed == 1 ? "line" : "lines");
}

std::string Attribute(const char* name, const std::string& value) {
  return std::string(" ") + name + "=\"" + XmlEscape(value) + "\"";
}

void PrintXml(const std::string& path, const ReadResult& result) {
  std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n";
  xml += "<UpdateHistory" + Attribute("file", path) +
         Attribute("skipped", std::to_string(result.malformed)) + ">\n";
  for (const sHistoryRecordTag& r : result.records) {
    xml += "   <Update" + Attribute("time", r.time) + Attribute("target", r.target) +
           Attribute("entity", std::to_string(r.entity)) +
           Attribute(r.remote ? "uri" : "image", r.source);
    if (!r.remote) xml += Attribute("sha256", r.sha256);
    xml += Attribute("before", r.versionBefore) + Attribute("after", r.versionAfter) +
           Attribute("code", std::to_string(r.returnCode)) +
           Attribute("seconds", std::to_string(r.seconds)) +
           Attribute("interrupted", r.interruptedBy) + " />\n";
  }
  xml += "</UpdateHistory>\n";
  Out().WriteDocument(xml);
}

}  // namespace

std::string HistoryPath() {
  const char* path = getenv("VRXFWUL_HISTORY_FILE");
  if (path != nullptr && path[0] != '\0') return path;
  // Another user's runs (LAN updates need no root) are their own history.
  const std::string home = platform::HomeDirectory();
  if (!platform::RunningAsRoot() && !home.empty())
    return home + "/.local/state/vrxfwul/history";
  return kDefaultPath;
}

std::string FormatHistoryRecord(const sHistoryRecordTag& r) {
  const std::string fields[kFieldCount] = {
      kFormatVersion,
      Escape(r.time),
      Escape(r.target),
      std::to_string(r.entity),
      r.remote ? "uri" : "image",
      Escape(r.source),
      OrDash(Escape(r.sha256)),
      OrDash(Escape(r.versionBefore)),
      OrDash(Escape(r.versionAfter)),
      std::to_string(r.returnCode),
      std::to_string(r.seconds),
      OrDash(Escape(r.interruptedBy))};
  std::string line;
  for (size_t i = 0; i < kFieldCount; ++i) {
    if (i > 0) line += '\t';
    line += fields[i];
  }
  return line + "\n";
}

bool ParseHistoryRecord(const std::string& line, sHistoryRecordTag* record) {
  std::vector<std::string> fields;
  size_t start = 0;
  while (true) {
    const size_t tab = line.find('\t', start);
    fields.push_back(line.substr(start, tab == std::string::npos ? tab : tab - start));
    if (tab == std::string::npos) break;
    start = tab + 1;
  }
  if (fields.size() != kFieldCount || fields[0] != kFormatVersion) return false;
  sHistoryRecordTag r;
  long entity = 0, rc = 0, seconds = 0;
  if (!ParseNumber(fields[3], &entity) || entity < 0 || entity > 255) return false;
  if (fields[4] != "uri" && fields[4] != "image") return false;
  if (!ParseNumber(fields[9], &rc) || !ParseNumber(fields[10], &seconds)) return false;
  std::string sha, before, after, signal;
  if (!Unescape(fields[1], &r.time) || !Unescape(fields[2], &r.target) ||
      !Unescape(fields[5], &r.source) || !Unescape(fields[6], &sha) ||
      !Unescape(fields[7], &before) || !Unescape(fields[8], &after) ||
      !Unescape(fields[11], &signal))
    return false;
  r.entity = static_cast<unsigned>(entity);
  r.remote = fields[4] == "uri";
  r.sha256 = DashIsEmpty(sha);
  r.versionBefore = DashIsEmpty(before);
  r.versionAfter = DashIsEmpty(after);
  r.returnCode = static_cast<int>(rc);
  r.seconds = seconds;
  r.interruptedBy = DashIsEmpty(signal);
  *record = r;
  return true;
}

int AppendHistoryRecord(const sHistoryRecordTag& record) {
  const std::string path = HistoryPath();
  std::string why;
  if (platform::GetEnv()->AppendRecord(path, FormatHistoryRecord(record), &why) == 0)
    return 0;
  Out().RedirectMessage(eRedirectError, "   Update history not written: %s: %s\n",
                        path.c_str(), why.c_str());
  return 1;
}

int ShowHistory(bool xml) {
  const std::string path = HistoryPath();
  ReadResult result;
  std::string why;
  bool missing = false;
  if (!ReadHistory(path, &result, &why, &missing)) {
    Out().RedirectMessage(eRedirectError, "\n   %s: %s\n", path.c_str(), why.c_str());
    return RC_FILE_ERROR;
  }
  if (xml)
    PrintXml(path, result);
  else
    PrintTable(path, result);
  return 0;
}
