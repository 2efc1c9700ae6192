#include "platform/Workspace.h"

#include <QDesktopServices>

bool DesktopWorkspace::openURL(const QUrl &url) {
    return QDesktopServices::openUrl(url);
}
