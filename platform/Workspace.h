#pragma once

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
    bool openURL(const QUrl &url) override;
};
