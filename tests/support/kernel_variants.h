// Test helpers for kernels' variant tables (platform/cpu_features.h): test
// names and failure messages show a variant by its name.
#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "platform/cpu_features.h"

namespace scancode {
template <typename Fn>
void PrintTo(const KernelVariant<Fn>& variant, std::ostream* os) {
    *os << variant.name;
}
}  // namespace scancode

// The name generator for INSTANTIATE_TEST_SUITE_P over a variant table, or
// over any parameter with a `name`.
struct VariantName {
    template <typename Param>
    std::string operator()(const ::testing::TestParamInfo<Param>& info) const {
        return std::string(info.param.name);
    }
};
