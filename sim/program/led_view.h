// The panel's LEDs and the buzzer as a picture in the last two rows of a terminal; the text above
// scrolls by itself.
#pragma once

#include "sim/world.h"

namespace sim {

class LedView {
  public:
    // Shows nothing unless wanted and on a large enough terminal.
    explicit LedView(bool wanted);
    ~LedView();
    LedView(const LedView&) = delete;
    LedView& operator=(const LedView&) = delete;

    bool is_shown() const { return rows_ > 0; }
    void draw(const PanelState& panel, bool buzzer_sounds) const;

  private:
    int rows_ = 0;  // of the terminal; 0 = not shown
};

}  // namespace sim
