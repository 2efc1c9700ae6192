#pragma once

#include <sys/types.h>

#include <QUrl>

// The desktop's opener of addresses. An interface, so that a test sees what would be opened.
class Workspace {
  public:
    virtual ~Workspace() = default;
    // Asks the desktop to open `url` in the program meant for it. False if nothing could be asked.
    virtual bool openURL(const QUrl &url) = 0;
};

class DesktopWorkspace : public Workspace {
  public:
    // What is started gets `usersMask` as its mask of file modes: this program's own is stricter.
    explicit DesktopWorkspace(mode_t usersMask) : usersMask_(usersMask) {}
    bool openURL(const QUrl &url) override;

  private:
    mode_t usersMask_;
};
