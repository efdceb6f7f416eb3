#include "renderkit/shot/ProcessorFeatures.h"

namespace renderkit {

std::string missingProcessorFeatures() {
  std::string missing;
#if defined(__x86_64__)
  // By append alone: another template could be the copy that was compiled for the processor
  // that is asked for.
  const auto need = [&](bool there, const char* name) {
    if (there) return;
    if (!missing.empty()) missing.append(", ");
    missing.append(name);
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
