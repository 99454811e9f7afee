// The recording of a run's IPMI conversation; the format is described in
// the header.
#include "ipmi/request_record.h"

#include <stdio.h>
#include <string.h>
#include <sys/wait.h>

#include <memory>

#include "ipmi/request_trace.h"
#include "output/output.h"
#include "platform/files.h"
#include "platform/platform.h"

namespace {

const uint8_t kCmdGetConfig = 0x02;
const uint8_t kCmdSetConfig = 0x03;
const size_t kSetHeaderLength = kUriSetHeaderLength;
const size_t kGetHeaderLength = kUriGetHeaderLength;
const size_t kStoreSize = 256;  // offsets of the URI item are 16 bits

struct Recording {
  std::unique_ptr<platform::File> file;
  long long startMs = 0;
  long long requestMs = 0;  // start of the attempt in progress
  unsigned sequence = 0;
  int attempt = 0;
  // The attempt in progress is a read of the URI item at this offset.
  bool readsUri = false;
  unsigned uriOffset = 0;
  // What this run wrote into the URI item, to tell the read-back apart.
  uint8_t written[kStoreSize] = {};
  bool known[kStoreSize] = {};
};

Recording g_recording;

long long NowMs() { return platform::GetEnv()->MonotonicMs(); }

// One whole line, handed to the file at once, so a stopped run leaves
// whole lines.
void WriteLine(std::string line) {
  if (g_recording.file == nullptr) return;
  line += '\n';
  g_recording.file->Write(line.data(), line.size());
  g_recording.file->Flush();
}

std::string Hex(uint8_t byte) {
  char text[3];
  snprintf(text, sizeof(text), "%02x", byte);
  return text;
}

std::string Bytes(const uint8_t* data, size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    if (i > 0) text += ' ';
    text += Hex(data[i]);
  }
  return text;
}

// Keeps a field one word: every byte outside '!'..'~' and '%' as %XX.
std::string Escaped(const std::string& text) {
  std::string out;
  for (unsigned char c : text) {
    if (c > ' ' && c <= '~' && c != '%') {
      out += static_cast<char>(c);
    } else {
      out += '%';
      char hex[3];
      snprintf(hex, sizeof(hex), "%02X", c);
      out += hex;
    }
  }
  return out;
}

// "T KIND S.A" of the attempt in progress.
std::string Head(const char* kind, long long now) {
  return std::to_string(now - g_recording.startMs) + " " + kind + " " +
         std::to_string(g_recording.sequence) + "." +
         std::to_string(g_recording.attempt + 1);
}

std::string EndHead(const char* kind) {
  const long long now = NowMs();
  return Head(kind, now) + " ms=" + std::to_string(now - g_recording.requestMs);
}

std::string Refusal(const char* path, char* const* images, int imageCount,
                    platform::FileInfo* existing, bool* exists) {
  platform::Env* env = platform::GetEnv();
  *exists = env->LinkStat(path, existing);
  if (!*exists) return "";
  if (existing->type == platform::FileType::kSymlink)
    return "is a symbolic link; the recording is not written through one";
  if (existing->type != platform::FileType::kRegular) return "is not a regular file";
  for (int i = 0; images != nullptr && i < imageCount; ++i) {
    platform::FileInfo image;
    if (images[i] != nullptr && images[i][0] != '\0' && env->Stat(images[i], &image) &&
        platform::SameFile(image, *existing))
      return "is the image file named with -i";
  }
  platform::FileInfo log;
  if (G_pOutputMessageHandle != nullptr && G_pOutputMessageHandle->LogFileInfo(&log) &&
      platform::SameFile(log, *existing))
    return "is the log file named with -l";
  return "";
}

// The user name and the password stay out: only where the BMC was.
std::string HeaderLine(const char* lanHost, const char* lanInterface) {
  std::string line = "vrxfwul-recording 1 ";
  if (lanHost == nullptr) return line + "kcs";
  line += "lan host=" + Escaped(lanHost);
  line += " interface=" + Escaped(lanInterface != nullptr ? lanInterface : "");
  return line;
}

}  // namespace

std::string OpenRequestRecording(const char* path, char* const* images,
                                 int imageCount, const char* lanHost,
                                 const char* lanInterface) {
  CloseRequestRecording();
  platform::FileInfo before;
  bool exists = false;
  // Checked before opening: the -l log must not be truncated by mistake.
  std::string reason = Refusal(path, images, imageCount, &before, &exists);
  if (!reason.empty()) return reason;
  // Private, never through a symbolic link, a regular file only.
  std::unique_ptr<platform::File> file = platform::GetEnv()->CreateForWrite(path);
  if (file == nullptr) {
    const std::string name = path;
    const size_t slash = name.rfind('/');
    platform::FileInfo directory;
    if (slash != std::string::npos &&
        !platform::GetEnv()->Stat(slash == 0 ? "/" : name.substr(0, slash), &directory))
      return "cannot be created: No such file or directory";
    return "cannot be created";
  }
  platform::FileInfo opened;
  // Something else took the name between the check and the open.
  if (!file->Stat(&opened) || (exists && !platform::SameFile(opened, before))) {
    file->Close();
    return "changed while it was opened";
  }
  g_recording = Recording();
  g_recording.file = std::move(file);
  g_recording.startMs = NowMs();
  WriteLine(HeaderLine(lanHost, lanInterface));
  return "";
}

void CloseRequestRecording() {
  if (g_recording.file != nullptr) g_recording.file->Close();
  g_recording.file.reset();
}

bool RequestRecordingOpen() { return g_recording.file != nullptr; }

void RecordRequestAttempt(unsigned char slaveAddress, unsigned char netFnLun,
                          unsigned char command, const sIPMIReqRespTag* record,
                          int attempt) {
  if (g_recording.file == nullptr) return;
  Recording& r = g_recording;
  if (attempt == 0 || r.sequence == 0) ++r.sequence;
  r.attempt = attempt;
  r.requestMs = NowMs();
  const uint8_t* data = record->au8RequestData;
  const size_t length =
      BoundedLength(record->u16RequestDataLength, sizeof(record->au8RequestData));
  const bool uri = IsUriItem(netFnLun, command, data, static_cast<unsigned>(length));
  r.readsUri = uri && command == kCmdGetConfig && length >= 6;
  r.uriOffset = r.readsUri ? data[4] | (data[5] << 8) : 0;
  std::string line = Head("req", r.requestMs) + " sa=" + Hex(slaveAddress) +
                     " netfn=" + Hex(static_cast<uint8_t>(netFnLun >> 2)) +
                     " lun=" + std::to_string(netFnLun & 0x03) +
                     " cmd=" + Hex(command);
  if (uri && command == kCmdSetConfig && length > kSetHeaderLength) {
    const unsigned offset = length >= 6 ? data[4] | (data[5] << 8) : 0;
    for (size_t i = kSetHeaderLength; i < length; ++i) {
      const size_t at = offset + (i - kSetHeaderLength);
      if (at >= kStoreSize) break;
      r.written[at] = data[i];
      r.known[at] = true;
    }
    line += " mask=uri data=" + Bytes(data, kSetHeaderLength) + " *";
  } else {
    line += " data=" + Bytes(data, length);
  }
  WriteLine(line);
}

void RecordAnswer(const sIPMIReqRespTag* record) {
  if (g_recording.file == nullptr) return;
  Recording& r = g_recording;
  const uint8_t* data = record->au8ResponseData;
  const size_t length =
      BoundedLength(record->u16ResponseLength, sizeof(record->au8ResponseData));
  std::string line = EndHead("rsp") + " cc=" + Hex(record->u8CompletionCode);
  if (r.readsUri && length > kGetHeaderLength) {
    bool same = true;
    for (size_t i = kGetHeaderLength; i < length; ++i) {
      const size_t at = r.uriOffset + (i - kGetHeaderLength);
      if (at >= kStoreSize || !r.known[at] || r.written[at] != data[i])
        same = false;
    }
    line += same ? " mask=uri" : " mask=uri-other";
    line += " data=" + Bytes(data, kGetHeaderLength) + " *";
  } else {
    line += " data=" + Bytes(data, length);
  }
  WriteLine(line);
}

void RecordNoAnswer(int status) {
  if (g_recording.file == nullptr) return;
  WriteLine(EndHead("none") + " status=" + std::to_string(status));
}

void RecordToolNotRun(bool timedOut) {
  if (g_recording.file == nullptr) return;
  WriteLine(EndHead("none") + (timedOut ? " status=timeout" : " status=nostart"));
}

void RecordToolError(int waitStatus, const std::string& firstLine) {
  if (g_recording.file == nullptr) return;
  std::string how;
  if (WIFSIGNALED(waitStatus))
    how = "signal=" + std::to_string(WTERMSIG(waitStatus));
  else
    how = "exit=" + std::to_string(WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus)
                                                          : waitStatus);
  WriteLine(EndHead("tool") + " " + how + " text=" + Escaped(firstLine));
}
