#include "common/secret_text.h"

std::string MaskUriPassword(const std::string& uri) {
  const size_t scheme = uri.find("://");
  if (scheme == std::string::npos) return uri;
  const size_t authority = scheme + 3;
  // The user part ends at the last '@' before the path.
  size_t end = uri.find_first_of("/?#", authority);
  if (end == std::string::npos) end = uri.size();
  const size_t at = uri.rfind('@', end == 0 ? 0 : end - 1);
  if (at == std::string::npos || at < authority) return uri;
  const size_t colon = uri.find(':', authority);
  if (colon == std::string::npos || colon > at) return uri;
  return uri.substr(0, colon + 1) + "********" + uri.substr(at);
}
