#pragma once

#include <QAction>
#include <functional>

class ActionGate;
class QMenu;

// A menu item with an action that can be given and cleared: enabled exactly while it has an action or a
// submenu.
//
// Wraps a QAction that it does not own. UI thread only.
class MenuItem {
  public:
    // Clicks on `item` enter through `gate`.
    MenuItem(QAction &item, ActionGate &gate);
    MenuItem(const MenuItem &) = delete;
    MenuItem &operator=(const MenuItem &) = delete;

    // A click runs `action`. Whether there is one is asked again when the click's turn comes.
    void setAction(std::function<void()> action);
    void clearAction() { setAction(nullptr); }
    bool hasAction() const { return static_cast<bool>(action_); }

    // `submenu` may be null for none; not owned.
    void setSubmenu(QMenu *submenu);
    void setTitle(const QString &title) { item_.setText(title); }
    // The name of an image among the program's resources.
    void setImage(const QString &name);

    QAction &item() { return item_; }

  private:
    void update();

    QAction &item_;
    std::function<void()> action_;
};
