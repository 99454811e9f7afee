// Round trip of one request through a libopenraw.so: loads the library
// given on the command line, sends Get Device ID COUNT times and prints the
// median and mean in microseconds. A test tool, never installed.
//
//   openraw_bench LIBRARY [COUNT]
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <vector>

typedef uint32_t (*OpenFn)(void);
typedef int (*RequestFn)(uint32_t, unsigned char, unsigned char,
                         unsigned char*, unsigned char, unsigned char*,
                         unsigned char*, unsigned short*);
typedef void (*CloseFn)(uint32_t);

static double NowUs() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return ts.tv_sec * 1e6 + ts.tv_nsec / 1e3;
}

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: openraw_bench LIBRARY [COUNT]\n");
    return 2;
  }
  int count = argc > 2 ? atoi(argv[2]) : 200;
  if (count < 1 || count > 100000) count = 200;
  void* lib = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (lib == nullptr) {
    fprintf(stderr, "openraw_bench: %s\n", dlerror());
    return 1;
  }
  OpenFn rawOpen = reinterpret_cast<OpenFn>(dlsym(lib, "RawOpen"));
  RequestFn rawRequest = reinterpret_cast<RequestFn>(dlsym(lib, "RawRequest"));
  CloseFn rawClose = reinterpret_cast<CloseFn>(dlsym(lib, "RawClose"));
  if (rawOpen == nullptr || rawRequest == nullptr || rawClose == nullptr) {
    fprintf(stderr, "openraw_bench: entry point missing\n");
    return 1;
  }
  uint32_t handle = rawOpen();
  if (handle == 0) return 1;
  std::vector<double> times;
  int failures = 0;
  for (int i = 0; i < count; ++i) {
    unsigned char cc = 0xFF, data[128];
    unsigned short length = sizeof(data);
    double start = NowUs();
    int status = rawRequest(handle, 0x06 << 2, 0x01, nullptr, 0, &cc, data,
                            &length);
    times.push_back(NowUs() - start);
    if (status != 0 || cc != 0) ++failures;
  }
  rawClose(handle);
  std::sort(times.begin(), times.end());
  double sum = 0;
  for (double t : times) sum += t;
  printf("roundtrip count=%d failures=%d median_us=%.0f mean_us=%.0f "
         "min_us=%.0f max_us=%.0f\n",
         count, failures, times[times.size() / 2], sum / count, times.front(),
         times.back());
  return failures == 0 ? 0 : 1;
}
