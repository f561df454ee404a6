// PNG writing and reading, display conversion and the progress bar text.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>

#include "common/image.h"
#include "common/progress.h"

using namespace demo;

namespace {
std::string tempPath(const std::string& name) {
    return (std::filesystem::path(::testing::TempDir()) / ("lumr_demo_" + name)).string();
}
}  // namespace

TEST(DemoImage, PngRoundTripsGreyAndColourIntoNewFolders) {
    for (int channels : {1, 3}) {
        Image img(37, 11, channels);  // odd sizes: no row padding hides a mistake
        for (int y = 0; y < img.height; ++y)
            for (int x = 0; x < img.width; ++x)
                for (int c = 0; c < channels; ++c)
                    img.at(x, y)[c] = static_cast<uint8_t>(x * 7 + y * 13 + c * 101);
        const std::string path = tempPath("png/" + std::to_string(channels) + "/a.png");
        std::filesystem::remove_all(std::filesystem::path(path).parent_path());
        std::string error;
        ASSERT_TRUE(writePng(path, img, &error)) << error;
        Image back;
        ASSERT_TRUE(readPng(path, &back, &error)) << error;
        EXPECT_EQ(back.width, img.width);
        EXPECT_EQ(back.height, img.height);
        EXPECT_EQ(back.channels, channels);
        EXPECT_EQ(back.pixels, img.pixels);
    }
}

TEST(DemoImage, RefusesWhatItCannotWriteOrRead) {
    std::string error;
    Image four(4, 4, 4);
    EXPECT_FALSE(writePng(tempPath("four.png"), four, &error));
    EXPECT_FALSE(error.empty());
    Image broken(4, 4, 3);
    broken.pixels.resize(5);
    EXPECT_FALSE(writePng(tempPath("broken.png"), broken, &error));
    const std::string text = tempPath("not.png");
    FILE* f = std::fopen(text.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fputs("plain text, not an image", f);
    std::fclose(f);
    Image out;
    EXPECT_FALSE(readPng(text, &out, &error));
    EXPECT_FALSE(readPng(tempPath("missing.png"), &out, &error));
}

TEST(DemoImage, DisplayConversionClampsAndFollowsGamma) {
    EXPECT_EQ(toDisplay8(0.0f), 0);
    EXPECT_EQ(toDisplay8(-1.0f), 0);
    EXPECT_EQ(toDisplay8(std::nanf("")), 0);
    EXPECT_EQ(toDisplay8(1.0f), 255);
    EXPECT_EQ(toDisplay8(7.0f), 255);
    EXPECT_EQ(toDisplay8(0.5f), static_cast<int>(std::pow(0.5, 1 / 2.2) * 255 + 0.5));
    int last = 0;
    for (int i = 0; i <= 1000; ++i) {
        const int v = toDisplay8(i / 1000.0f);
        EXPECT_GE(v, last);
        last = v;
    }
}

TEST(DemoProgress, BarTextAndQuietShortWork) {
    const std::string half = Progress::render("work", 50, 100, 2.0);
    EXPECT_NE(half.find("work ["), std::string::npos);
    EXPECT_NE(half.find(" 50%"), std::string::npos);
    EXPECT_NE(half.find("2.0s left"), std::string::npos);
    EXPECT_EQ(std::count(half.begin(), half.end(), '#'), 16);
    const std::string over = Progress::render("work", 150, 100, 1.0);
    EXPECT_NE(over.find("100%"), std::string::npos);
    EXPECT_EQ(Progress::render("w", -5, 0, 0.0).find('#'), std::string::npos);

    // Work done within a second draws nothing at all.
    ::testing::internal::CaptureStderr();
    {
        Progress quick("quick", 10);
        for (int i = 0; i < 10; ++i) quick.advance();
        quick.finish();
        EXPECT_FALSE(quick.shown());
    }
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}
