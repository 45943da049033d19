#include "platform/WindowIcon.h"

#include "QuendelIcon.h"

namespace WindowIcon
{

void apply (const juce::Component& window)
{
    constexpr int size = 64;
    const auto drawing = juce::Drawable::createFromSVG (*juce::parseXML (iconAsSvg));
    juce::Image image (juce::Image::ARGB, size, size, true);
    juce::Graphics g (image);
    drawing->drawWithin (g, image.getBounds().toFloat(), juce::RectanglePlacement::centred, 1.0f);
    window.getPeer()->setIcon (image);
}

} // namespace WindowIcon
