// Throughput of the pieces that touch every byte or line: the header CRC,
// the image copy onto the stick, and the parsers of the tools' reports.
// Targets: the 508-byte header CRC well under 10 us; copying a 32 MiB image
// in 1 KiB flushed chunks limited by the disk, not the loop; a "df -Th"
// report of 200 lines parsed in well under 1 ms.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "image/image_file.h"
#include "output/output.h"
#include "support/fake_env.h"
#include "update/firmware_update.h"
#include "usb/write_firmware.h"

namespace {

void BM_HeaderCrc(benchmark::State& state) {
  TImageFileHandle handle;
  std::vector<uint8_t> block(512, 0x5A);
  for (auto _ : state) {
    benchmark::DoNotOptimize(handle.CalculateHeaderCRC(block.data() + 4, 508));
  }
  state.SetBytesProcessed(state.iterations() * 508);
}
BENCHMARK(BM_HeaderCrc);

void BM_CopyImage(benchmark::State& state) {
  OutputConstructor();
  G_pOutputMessageHandle->SetOutputMode(eOutputQuiet);
  const size_t size = static_cast<size_t>(state.range(0)) << 20;
  char src[] = "/tmp/vrxbench_srcXXXXXX";
  int fd = mkstemp(src);
  std::vector<char> chunk(1 << 20, 'x');
  for (size_t done = 0; done < size; done += chunk.size())
    if (write(fd, chunk.data(), chunk.size()) < 0) break;
  close(fd);
  std::string dst = std::string(src) + ".dst";
  for (auto _ : state) {
    benchmark::DoNotOptimize(WriteFwImageFile(src, dst.c_str()));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
  unlink(src);
  unlink(dst.c_str());
  OutputDestructor();
}
// Wall time: the copy waits on the disk, which CPU time does not see.
BENCHMARK(BM_CopyImage)->Arg(32)->UseRealTime()->Unit(benchmark::kMillisecond);

std::string DfReport(int lines) {
  std::string text =
      "Filesystem     Type      Size  Used Avail Use% Mounted on\n";
  for (int i = 0; i < lines; ++i)
    text += "/dev/sda" + std::to_string(i) +
            "      ext4       20G  4.1G   15G  22% /data" + std::to_string(i) +
            "\n";
  text += "/dev/sdb1      vfat       64M  1.0K   64M   1% /media/scrtch\n";
  return text;
}

void BM_DiskUsageSearch(benchmark::State& state) {
  testing_support::FakeEnv env;
  env.Script("df -Th", DfReport(static_cast<int>(state.range(0))));
  env.block_devices["/dev/sdb1"] = 131072;
  OutputConstructor();
  FwUpdateConstructor();
  G_pOutputMessageHandle->SetOutputMode(eOutputQuiet);
  TWriteFirmware writer;
  for (auto _ : state) {
    benchmark::DoNotOptimize(writer.IsMountedOnDirectoryFound());
  }
  FwUpdateDestructor();
  OutputDestructor();
}
BENCHMARK(BM_DiskUsageSearch)->Arg(200);

std::string FdiskReport(int disks) {
  std::string text;
  for (int i = 0; i < disks; ++i) {
    std::string name = "/dev/sd" + std::string(1, static_cast<char>('a' + i % 26));
    text += "Disk " + name + ": 20 GiB, 21474836480 bytes, 41943040 sectors\n";
    text += "Units: sectors of 1 * 512 = 512 bytes\n\n";
    text += "Device     Boot Start      End  Sectors Size Id Type\n";
    text += name + "1  *     2048 41943039 41940992  20G 83 Linux\n\n";
  }
  return text;
}

void BM_BlockDeviceList(benchmark::State& state) {
  testing_support::FakeEnv env;
  env.Script("/sbin/fdisk -l", FdiskReport(static_cast<int>(state.range(0))));
  OutputConstructor();
  G_pOutputMessageHandle->SetOutputMode(eOutputQuiet);
  TWriteFirmware writer;
  for (auto _ : state) {
    benchmark::DoNotOptimize(writer.GetBlockDeviceList());
  }
  OutputDestructor();
}
BENCHMARK(BM_BlockDeviceList)->Arg(16);

}  // namespace

BENCHMARK_MAIN();
