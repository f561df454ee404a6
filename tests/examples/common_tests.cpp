// PNG files, display conversion and the progress bar text.
#include <algorithm>
#include <cmath>

#include "common/image.h"
#include "common/progress.h"
#include "demo_test_util.h"

using namespace demo;

TEST(DemoImage, PngRoundTripsAndRefusesWhatItCannotHandle) {
    std::string error;
    for (int channels : {1, 3}) {
        Image img(37, 11, channels);  // odd sizes: no row padding hides a mistake
        for (size_t i = 0; i < img.pixels.size(); ++i) img.pixels[i] = uint8_t(i * 7 % 251);
        const std::string path = tempPath("png/" + std::to_string(channels) + "/a.png");
        std::filesystem::remove_all(std::filesystem::path(path).parent_path());
        ASSERT_TRUE(writePng(path, img, &error)) << error;  // makes the folders on the way
        Image back;
        ASSERT_TRUE(readPng(path, &back, &error)) << error;
        EXPECT_TRUE(back.width == 37 && back.height == 11 && back.channels == channels);
        EXPECT_EQ(back.pixels, img.pixels);
    }
    Image broken(4, 4, 3);
    broken.pixels.resize(5);
    EXPECT_FALSE(writePng(tempPath("four.png"), Image(4, 4, 4), &error));
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(writePng(tempPath("broken.png"), broken, &error));
    Image out;
    EXPECT_FALSE(readPng(tempPath("not.png", "plain text, not an image"), &out, &error));
    EXPECT_FALSE(readPng(tempPath("missing.png"), &out, &error));
}

TEST(DemoImage, DisplayConversionClampsAndFollowsGamma) {
    for (float v : {0.0f, -1.0f, std::nanf("")}) EXPECT_EQ(toDisplay8(v), 0);
    EXPECT_EQ(toDisplay8(1.0f), 255);
    EXPECT_EQ(toDisplay8(7.0f), 255);
    EXPECT_EQ(toDisplay8(0.5f), static_cast<int>(std::pow(0.5, 1 / 2.2) * 255 + 0.5));
    for (int i = 0; i < 1000; ++i) ASSERT_LE(toDisplay8(i * 1e-3f), toDisplay8((i + 1) * 1e-3f));
}

TEST(DemoProgress, BarTextAndQuietShortWork) {
    const std::string half = Progress::render("work", 50, 100, 2.0);
    for (const char* part : {"work [", " 50%", "2.0s left"})
        EXPECT_NE(half.find(part), std::string::npos) << half;
    EXPECT_EQ(std::count(half.begin(), half.end(), '#'), 16);
    EXPECT_NE(Progress::render("work", 150, 100, 1.0).find("100%"), std::string::npos);
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
