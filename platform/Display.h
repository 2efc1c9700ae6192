#pragma once

#include <string>

struct xcb_connection_t;

// A look at the display before the QApplication is made, which ends the process without a word that helps
// where there is none. To be kept until then: an X server may begin anew when its only client leaves.
class DisplayCheck {
  public:
    DisplayCheck();
    ~DisplayCheck();
    DisplayCheck(const DisplayCheck &) = delete;
    DisplayCheck &operator=(const DisplayCheck &) = delete;

    // Why no window can be shown, in words for the user; empty if one can.
    const std::string &problem() const { return problem_; }

  private:
    xcb_connection_t *connection_ = nullptr;
    std::string problem_;
};
