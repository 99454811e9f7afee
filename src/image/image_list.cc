// The list of image files named on the command line.
#include <stdio.h>
#include <string.h>

#include <memory>
#include <new>

#include "image/image_file.h"
#include "output/output.h"
#include "platform/platform.h"

TImageFileHandle* G_pImageFileHandle = nullptr;

int ImageHandlerConstructor() {
  G_pImageFileHandle = new (std::nothrow) TImageFileHandle();
  return G_pImageFileHandle == nullptr ? 1 : 0;
}

int ImageHandlerDestructor() {
  delete G_pImageFileHandle;
  G_pImageFileHandle = nullptr;
  return 0;
}

TImageFileHandle::TImageFileHandle() { GenerateCRC32Table(); }

TImageFileHandle::~TImageFileHandle() { DeleteImageHeaderList(); }

int TImageFileHandle::CreateImageHeaderList(int count) {
  if (count < 1) count = 1;
  // A second list replaces the first; the first is not leaked.
  DeleteImageHeaderList();
  psImageHeaderList = new (std::nothrow) sImageHeaderTag[count]();
  if (psImageHeaderList == nullptr) return RC_OUT_OF_MEMORY;
  i32ImageListCapacity = count;
  ClearImageHeaderList();
  return RC_SUCCESS;
}

void TImageFileHandle::ClearImageHeaderList() {
  if (psImageHeaderList == nullptr) return;
  // The count may still be that of an earlier, longer list.
  int records = i32ImageFileCount < i32ImageListCapacity ? i32ImageFileCount
                                                         : i32ImageListCapacity;
  for (int i = 0; i < records; ++i) {
    SetCurrImageHeader(i);
    ClearCurrImageHeader();
  }
}

void TImageFileHandle::ClearCurrImageHeader() {
  if (psCurrImageHeader == nullptr) return;
  memset(psCurrImageHeader, 0, sizeof(*psCurrImageHeader));
}

int TImageFileHandle::DeleteImageHeaderList() {
  if (psImageHeaderList == nullptr) return 0;
  delete[] psImageHeaderList;
  psImageHeaderList = nullptr;
  psCurrImageHeader = nullptr;
  i32ImageListCapacity = 0;
  return 0;
}

void TImageFileHandle::SetCurrImageHeader(int index) {
  if (psImageHeaderList == nullptr) return;
  psCurrImageHeader = index >= 0 && index < i32ImageListCapacity
                          ? &psImageHeaderList[index]
                          : nullptr;
}

namespace {

// The image header takes the first 512 bytes.
constexpr size_t kMinimumImageSize = 512;


// The header's size fields are 32 bits wide.
constexpr unsigned long long kLargestImage = 0xFFFFFFFFull;

// Size of an opened image file, or a reason it cannot be one. Returns 0 when
// the file is usable.
int SizeOfImageFile(platform::File* file, const char* name, uint32_t* size) {
  platform::FileInfo info;
  if (!file->Stat(&info)) {
    G_pOutputMessageHandle->RedirectMessage(eRedirectDebug,
                                            "\n   Cannot open %s \n", name);
    return 1;
  }
  if (info.type == platform::FileType::kDirectory) {
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectError, "\n   %s is a directory, not an image file \n", name);
    return 1;
  }
  long long end = file->Size();
  if (end < 0) {
    G_pOutputMessageHandle->RedirectMessage(eRedirectDebug,
                                            "\n   Cannot open %s \n", name);
    return 1;
  }
  if (static_cast<unsigned long long>(end) > kLargestImage) {
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectError,
        "\n   %s is larger than 4 GiB, too large for an image file \n", name);
    return 1;
  }
  *size = static_cast<uint32_t>(end);
  return 0;
}

// Why an opened file cannot be an image, or null. An image holds at least
// its header, so an empty or truncated file never starts an update.
const char* ImageFileRefusal(platform::File* file) {
  platform::FileInfo st;
  if (!file->Stat(&st)) return "cannot be examined";
  // A directory is refused by name further on.
  if (st.type == platform::FileType::kDirectory) return nullptr;
  if (st.type != platform::FileType::kRegular) return "is not a regular file";
  if (st.size < kMinimumImageSize)
    return "is too short to be an image (less than 512 bytes)";
  return nullptr;
}

}  // namespace

int TImageFileHandle::ReadValidateFwImageFileHeader(char** names, int count) {
  int listSize = count == 0 ? 1 : count;
  if (CreateImageHeaderList(listSize) != RC_SUCCESS) return RC_OUT_OF_MEMORY;

  int result = RC_SUCCESS;
  int opened = 0;
  for (int i = 0; i < count; ++i) {
    const char* name = names[i] != nullptr ? names[i] : "";
    SetCurrImageHeader(opened);
    sImageHeaderTag* header = psCurrImageHeader;
    G_pOutputMessageHandle->RedirectMessage(
        eRedirectDebug, "\n   Read and validate %s ", name);
    if (strlen(name) >= sizeof(header->achFileName)) {
      // A cut path would name another file.
      G_pOutputMessageHandle->RedirectMessage(
          eRedirectError, "\n   File name too long: %s \n", name);
      ClearCurrImageHeader();
      result = RC_OPEN_INPUT_FAILED;
      continue;
    }
    snprintf(header->achFileName, sizeof(header->achFileName), "%s", name);
    // Without blocking: a FIFO named as the image would hang the open.
    std::unique_ptr<platform::File> file = platform::GetEnv()->OpenForRead(name);
    const char* refusal = file ? ImageFileRefusal(file.get()) : nullptr;
    if (refusal != nullptr) {
      file.reset();
      G_pOutputMessageHandle->RedirectMessage(eRedirectError, "   %s: %s\n",
                                              name, refusal);
      ClearCurrImageHeader();
      result = RC_FILE_ERROR;
      continue;
    }
    if (!file) {
      G_pOutputMessageHandle->RedirectMessage(eRedirectDebug,
                                              "\n   Cannot open %s \n", name);
      ClearCurrImageHeader();
      result = RC_OPEN_INPUT_FAILED;
      continue;
    }
    uint32_t size = 0;
    int unusable = SizeOfImageFile(file.get(), name, &size);
    file.reset();
    if (unusable != 0) {
      ClearCurrImageHeader();
      result = RC_OPEN_INPUT_FAILED;
      continue;
    }
    header->u32FileSize = size;
    header->u32ImageSize = size;
    ++opened;
  }

  SetFwImageFileCount(opened);
  if (opened == 0) {
    ClearImageHeaderList();
    return result;
  }
  return RC_SUCCESS;
}
