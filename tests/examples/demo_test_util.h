// Helpers shared by the example programs' tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "volume/volume.h"

namespace demo {

// A path under the test's temporary folder; with text, a file holding it.
inline std::string tempPath(const std::string& name, const char* text = nullptr) {
    const std::string path =
        (std::filesystem::path(::testing::TempDir()) / ("lumr_demo_" + name)).string();
    if (text) {
        FILE* f = std::fopen(path.c_str(), "w");
        EXPECT_NE(f, nullptr) << path;
        if (f) std::fputs(text, f), std::fclose(f);
    }
    return path;
}

// Samples that differ between two volumes, or -1 when their sizes differ.
inline int countDifferences(const Volume& a, const Volume& b) {
    if (a.width() != b.width() || a.height() != b.height() || a.depth() != b.depth()) return -1;
    int n = 0;
    for (int z = 0; z < a.depth(); ++z)
        for (int y = 0; y < a.height(); ++y)
            for (int x = 0; x < a.width(); ++x) n += a.get(x, y, z) != b.get(x, y, z);
    return n;
}

}  // namespace demo
