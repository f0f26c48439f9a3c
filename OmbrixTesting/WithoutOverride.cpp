#include "OmbrixTesting/WithoutOverride.hpp"

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>

namespace ombrix::testing {
namespace {

using Capabilities = std::array<__user_cap_data_struct, 2>;

// The C library has no wrapper; the raw call affects only the calling thread.
Capabilities capabilities() {
  __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  Capabilities data{};
  syscall(SYS_capget, &header, data.data());
  return data;
}

void setEffective(std::uint32_t effective) {
  __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  Capabilities data = capabilities();
  data[0].effective = effective;
  syscall(SYS_capset, &header, data.data());
}

}  // namespace

WithoutOverride::WithoutOverride() : effective_(capabilities()[0].effective) {
  setEffective(effective_ & ~(1U << CAP_DAC_OVERRIDE) & ~(1U << CAP_DAC_READ_SEARCH) &
               ~(1U << CAP_CHOWN));
}

WithoutOverride::~WithoutOverride() { setEffective(effective_); }

}  // namespace ombrix::testing
