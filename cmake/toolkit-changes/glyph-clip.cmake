# A glyph looks the same whatever part of it is painted, on an image that begins wherever.

# One that begins between two pixels also touches the pixel after its bounds. As it comes, the toolkit leaves that out as
# soon as something else is cut off, rounds where it begins towards the edge of the image, and lets the last bit of a
# position decide.

set (file juce_graphics/geometry/juce_EdgeTable.cpp)

quendel_change_toolkit ([[
    bounds.translate ((int) std::floor (dx), dy);
]] [[
    const auto intDx = (int) std::floor (dx * 256.0f + 0.002f);
    bounds.translate (intDx >> 8, dy);
    bounds.setWidth (bounds.getWidth() + 1);
]])

quendel_change_toolkit ("    auto intDx = (int) (dx * 256.0f);\n" "")

# The only rectangle of the clip that touches it cuts it. As it comes, all that is outside of the clip is cut off piece by
# piece, which is five times the work.

set (file juce_graphics/native/juce_RenderingHelpers.h)

quendel_change_toolkit ([[
            RectangleList<int> inverse (edgeTable.getMaximumBounds());
]] [[
            const auto isTouched = [this] (Rectangle<int> part) { return part.intersects (edgeTable.getMaximumBounds()); };
            const auto first = std::find_if (r.begin(), r.end(), isTouched);

            if (first != r.end() && std::none_of (first + 1, r.end(), isTouched))
                return clipToRectangle (*first);

            RectangleList<int> inverse (edgeTable.getMaximumBounds());
]])
