#include "platform/Pasteboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>
#include <optional>

#include "platform/Text.h"
#include "platform/UiThread.h"
#include "platform/Waiting.h"
#include "platform/WaylandSelection.h"
#include "platform/XSelectionReader.h"

namespace {

PasteboardText textOf(const QMimeData *data) {
    if (!data || !data->hasText()) return {};
    return {PasteboardText::State::kText, toUtf8(data->text())};
}

// What can be told without asking another program: nothing if one has to be asked. UI thread.
std::optional<PasteboardText> ownText(bool isWayland) {
    const QClipboard &clipboard = *QGuiApplication::clipboard();
    if (clipboard.ownsClipboard()) return textOf(clipboard.mimeData());
    if (QGuiApplication::platformName() == u"xcb") return std::nullopt;
    // Wayland shows the clipboard to the program with the keyboard focus alone.
    if (!QGuiApplication::focusWindow()) return PasteboardText{PasteboardText::State::kNoAccess, {}};
    if (isWayland) return std::nullopt;
    return textOf(clipboard.mimeData());
}

// A Wayland compositor may show the clipboard to X11 programs only while one of their windows is in use;
// until then it looks empty, or the compositor, in the owner's name, refuses to give it.
bool mayBeHidden() {
    return qEnvironmentVariableIsSet("WAYLAND_DISPLAY") && !QGuiApplication::focusWindow();
}

}  // namespace

DesktopPasteboard::DesktopPasteboard(UiThread &ui, Waiting &waiting)
    : ui_(ui), waiting_(waiting), wayland_(WaylandSelection::ofThisDesktop()) {}

DesktopPasteboard::~DesktopPasteboard() = default;

PasteboardText DesktopPasteboard::readFromOwner(const std::stop_token &stop) const {
    return wayland_ ? wayland_->read(kLimits, stop) : readXSelection(kLimits, stop);
}

PasteboardText DesktopPasteboard::stringForType(const std::stop_token &stop) {
    if (auto own = ui_.run([this] { return ownText(wayland_ != nullptr); })) return *own;
    PasteboardText copied =
        !ui_.isCurrent()
            ? readFromOwner(stop)
            : waiting_.run(QCoreApplication::translate("Pasteboard", "Asking for the copied text…"),
                           [this](const std::stop_token &given) { return readFromOwner(given); });
    const bool isWithheld = !copied.isOwned || copied.state == PasteboardText::State::kRefused;
    if (isWithheld && ui_.run(mayBeHidden)) copied.state = PasteboardText::State::kNoAccess;
    return copied;
}

bool DesktopPasteboard::setString(const std::string &text) {
    auto *data = new QMimeData;  // the clipboard takes it over
    data->setText(toQString(text));
    QClipboard &clipboard = *QGuiApplication::clipboard();
    clipboard.setMimeData(data);
    return clipboard.ownsClipboard();
}
