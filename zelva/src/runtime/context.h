// The set of devices a net may use, handed to the net constructor and to every kernel. The first place holds
// the device on which kernels make every output and working tensor; the other five are reserved and stay
// null. Read-only after construction; the context is the sole long-lived owner of its device.
#pragma once

#include <cstdint>
#include <memory>

#include "zelva/src/runtime/device.h"

namespace zelva {
namespace runtime {

struct Context {
  Context(std::shared_ptr<Device> device_cpu, std::shared_ptr<Device> reserved_device1,
          std::shared_ptr<Device> reserved_device2, std::shared_ptr<Device> reserved_device3,
          std::shared_ptr<Device> reserved_device4, std::shared_ptr<Device> reserved_device5)
      : device_cpu(std::move(device_cpu)),
        reserved_device1(std::move(reserved_device1)),
        reserved_device2(std::move(reserved_device2)),
        reserved_device3(std::move(reserved_device3)),
        reserved_device4(std::move(reserved_device4)),
        reserved_device5(std::move(reserved_device5)) {}
  // Members are released in reverse order of declaration.
  ~Context() = default;

  static std::shared_ptr<Context> Create(std::shared_ptr<Device> device_cpu,
                                         std::shared_ptr<Device> reserved_device1 = nullptr,
                                         std::shared_ptr<Device> reserved_device2 = nullptr,
                                         std::shared_ptr<Device> reserved_device3 = nullptr,
                                         std::shared_ptr<Device> reserved_device4 = nullptr,
                                         std::shared_ptr<Device> reserved_device5 = nullptr);

  // The first device as the tensor factory; every device made in this system is a DeviceCPU.
  DeviceCPU* GetDeviceCPU() const {
    ZV_ASSERT(device_cpu != nullptr, "context has no cpu device.");
    return static_cast<DeviceCPU*>(device_cpu.get());
  }

  std::shared_ptr<Device> device_cpu;
  std::shared_ptr<Device> reserved_device1;
  std::shared_ptr<Device> reserved_device2;
  std::shared_ptr<Device> reserved_device3;
  std::shared_ptr<Device> reserved_device4;
  std::shared_ptr<Device> reserved_device5;
};

// An engine's context: an AlignUpPool and an AlignedPool of the given alignment, a DeviceCPU on the default
// config with the AlignedPool as `pool`, no host pool and the AlignUpPool as `up_pool`, in the first place.
std::shared_ptr<Context> CreateCPUContext(uint64_t alignment);

}  // namespace runtime
}  // namespace zelva
