#include "renderkit/shot/ProcessorFeatures.h"

namespace renderkit {

std::string missingProcessorFeatures() {
  std::string missing;
#if defined(__x86_64__)
  const auto need = [&](bool there, const char* name) {
    if (!there) missing += (missing.empty() ? "" : ", ") + std::string(name);
  };
  __builtin_cpu_init();
  need(__builtin_cpu_supports("avx"), "avx");
  need(__builtin_cpu_supports("avx2"), "avx2");
  need(__builtin_cpu_supports("fma"), "fma");
  need(__builtin_cpu_supports("bmi"), "bmi1");
  need(__builtin_cpu_supports("bmi2"), "bmi2");
  need(__builtin_cpu_supports("f16c"), "f16c");
  need(__builtin_cpu_supports("lzcnt"), "lzcnt");
  need(__builtin_cpu_supports("movbe"), "movbe");
#endif
  return missing;
}

}  // namespace renderkit
