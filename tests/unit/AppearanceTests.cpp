#include "app/Appearance.h"

#include <gtest/gtest.h>

namespace
{

/** A progress bar on the ground of the window that it is in, by the brightness of the pixels along its middle. */
std::vector<float> drawProgress (double progress, int width)
{
    Appearance appearance;
    const auto ground = appearance.findColour (juce::AlertWindow::backgroundColourId);
    const int height = 22, margin = 10;
    juce::Image image (juce::Image::RGB, width + 2 * margin, height, true);
    juce::Graphics g (image);
    g.fillAll (ground);
    g.setOrigin (margin, 0);

    juce::ProgressBar bar (progress);
    bar.setSize (width, height);
    appearance.drawProgressBar (g, bar, width, height, progress, {});

    std::vector<float> brightness;

    for (int x = 0; x < image.getWidth(); ++x)
        brightness.push_back (image.getPixelAt (x, height / 2).getPerceivedBrightness());

    return brightness;
}

TEST (AppearanceTests, progressAndWhatIsToComeAreSeenFromTheStart)
{
    constexpr int width = 200, margin = 10;
    constexpr float visible = 0.3f;

    for (const double progress : { 0.0, 0.5, 1.0 })
    {
        const auto drawn = drawProgress (progress, width);
        EXPECT_GT (drawn[margin] - drawn[0], visible) << progress;
        EXPECT_GT (drawn[margin + width - 1] - drawn[0], visible) << progress;

        const auto trough = drawProgress (0.0, width)[margin + width / 2];
        const auto filled = std::count_if (drawn.begin() + margin + 1,
                                           drawn.begin() + margin + width - 1,
                                           [&] (float brightness) { return brightness - trough > visible; });
        EXPECT_NEAR (static_cast<double> (filled), progress * width, 3.0);
    }
}

} // namespace
