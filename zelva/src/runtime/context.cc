#include "zelva/src/runtime/context.h"

namespace zelva {
namespace runtime {

std::shared_ptr<Context> Context::Create(std::shared_ptr<Device> device_cpu,
                                         std::shared_ptr<Device> reserved_device1,
                                         std::shared_ptr<Device> reserved_device2,
                                         std::shared_ptr<Device> reserved_device3,
                                         std::shared_ptr<Device> reserved_device4,
                                         std::shared_ptr<Device> reserved_device5) {
  return std::make_shared<Context>(std::move(device_cpu), std::move(reserved_device1),
                                   std::move(reserved_device2), std::move(reserved_device3),
                                   std::move(reserved_device4), std::move(reserved_device5));
}

std::shared_ptr<Context> CreateCPUContext(uint64_t alignment) {
  ZV_ASSERT(alignment <= UINT32_MAX, "alignment %llu too large.", static_cast<unsigned long long>(alignment));
  std::shared_ptr<MemoryPool> up_pool = std::make_shared<AlignUpPool>(alignment);
  std::shared_ptr<MemoryPool> pool = std::make_shared<AlignedPool>(static_cast<uint32_t>(alignment));
  DeviceConfig config;
  std::shared_ptr<Device> device = DeviceCPU::Create(config, pool, nullptr, up_pool);
  return Context::Create(std::move(device));
}

}  // namespace runtime
}  // namespace zelva
