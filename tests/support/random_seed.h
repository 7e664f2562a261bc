// The seed of a test that tries random operations.
#pragma once

#include <cstdlib>
#include <random>

/// A new seed for every run, or the one in VELLCORE_TEST_SEED: the test prints its seed when it fails.
inline unsigned random_seed() {
    const char* wanted = std::getenv("VELLCORE_TEST_SEED");
    return wanted != nullptr ? static_cast<unsigned>(std::strtoul(wanted, nullptr, 10)) : std::random_device()();
}
