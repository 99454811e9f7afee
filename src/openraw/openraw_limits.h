// Fixed values of the open raw-access library.
#ifndef VRX_OPENRAW_OPENRAW_LIMITS_H_
#define VRX_OPENRAW_OPENRAW_LIMITS_H_

namespace openraw {

constexpr char kDevicePath[] = "/dev/ipmi0";

// The driver answers every request itself within about 5 s (its own
// retries end with an error completion code); this limit only guards
// against a driver that never does.
constexpr int kAnswerLimitMs = 15000;

void SetAnswerLimitMsForTesting(int ms);

}  // namespace openraw

#endif  // VRX_OPENRAW_OPENRAW_LIMITS_H_
