#include <juce_gui_basics/juce_gui_basics.h>

/** The least that a window of the toolkit can be which refreshes as much, as often, as the program's does:
    quendel-bare-window WIDTH
*/
class BareWindowApplication : public juce::JUCEApplication
{
public:
    void initialise (const juce::String& commandLine) override
    {
        window = std::make_unique<Window> (juce::jmax (1, commandLine.getIntValue()));
    }

    void shutdown() override { window.reset(); }
    const juce::String getApplicationName() override { return "Bare window"; }
    const juce::String getApplicationVersion() override { return "1.0"; }

private:
    struct Area : public juce::Component, private juce::Timer
    {
        explicit Area (int width)
        {
            setOpaque (true);
            setSize (width, 652);
            startTimer (250);
        }

        void timerCallback() override { repaint(); }
        void paint (juce::Graphics& g) override { g.fillAll (juce::Colour (15, 15, 15)); }
    };

    struct Window : public juce::DocumentWindow
    {
        explicit Window (int width) : DocumentWindow ("Bare window", juce::Colours::black, closeButton, false)
        {
            setUsingNativeTitleBar (true);
            setContentOwned (new Area (width), true);
            addToDesktop();
            setVisible (true);
        }

        void closeButtonPressed() override { quit(); }
    };

    std::unique_ptr<Window> window;
};

START_JUCE_APPLICATION (BareWindowApplication)
