#include "platform/Pasteboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>
#include <optional>

#include "platform/Text.h"
#include "platform/UiThread.h"
#include "platform/Waiting.h"

namespace {

PasteboardText textOf(const QMimeData *data) {
    if (!data || !data->hasText()) return {};
    return {PasteboardText::State::kText, toUtf8(data->text())};
}

// What can be told without asking another program: this program's own text, or all that a desktop other than
// X11 shows. Nothing if another program has to be asked. UI thread.
std::optional<PasteboardText> ownText() {
    const QClipboard &clipboard = *QGuiApplication::clipboard();
    if (clipboard.ownsClipboard()) return textOf(clipboard.mimeData());
    if (QGuiApplication::platformName() == u"xcb") return std::nullopt;
    // Wayland shows the clipboard to the program with the keyboard focus alone.
    if (!QGuiApplication::focusWindow()) return PasteboardText{PasteboardText::State::kNoAccess, {}};
    return textOf(clipboard.mimeData());
}

// A Wayland compositor may show the clipboard to X11 programs only while one of their windows is in use;
// until then it looks empty.
bool mayBeHidden() {
    return qEnvironmentVariableIsSet("WAYLAND_DISPLAY") && !QGuiApplication::focusWindow();
}

}  // namespace

PasteboardText DesktopPasteboard::stringForType(const std::stop_token &stop) {
    if (auto own = ui_.run(ownText)) return *own;
    PasteboardText copied =
        !ui_.isCurrent()
            ? readXSelection(kOwnerLimit, stop)
            : waiting_.run(
                  QCoreApplication::translate("Pasteboard", "Asking for the copied text…"),
                  [](std::stop_token given) { return readXSelection(kOwnerLimit, std::move(given)); });
    if (!copied.isOwned && ui_.run(mayBeHidden)) copied.state = PasteboardText::State::kNoAccess;
    return copied;
}

bool DesktopPasteboard::setString(const std::string &text) {
    auto *data = new QMimeData;  // the clipboard takes it over
    data->setText(toQString(text));
    QClipboard &clipboard = *QGuiApplication::clipboard();
    clipboard.setMimeData(data);
    return clipboard.ownsClipboard();
}
