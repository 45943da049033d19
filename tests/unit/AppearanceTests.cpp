#include "app/Appearance.h"

#include <gtest/gtest.h>

namespace
{

constexpr int width = 200, margin = 10;

/** Draws a progress bar on its window's ground; returns the brightness of the pixels along its middle. */
std::vector<float> drawProgress (double progress)
{
    Appearance appearance;
    constexpr int height = 22;
    juce::Image image (juce::Image::RGB, width + 2 * margin, height, true);
    juce::Graphics g (image);
    g.fillAll (appearance.findColour (juce::AlertWindow::backgroundColourId));
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
    constexpr float visible = 0.3f;
    const auto trough = drawProgress (0.0)[margin + width / 2];

    for (const double progress : { 0.0, 0.5, 1.0 })
    {
        const auto drawn = drawProgress (progress);
        EXPECT_GT (drawn[margin] - drawn[0], visible) << progress;
        EXPECT_GT (drawn[margin + width - 1] - drawn[0], visible) << progress;

        const auto isFilled = [&] (float brightness) { return brightness - trough > visible; };
        const auto filled = std::count_if (drawn.begin() + margin + 1, drawn.end() - margin - 1, isFilled);
        EXPECT_NEAR (static_cast<double> (filled), progress * width, 3.0);
    }
}

} // namespace
