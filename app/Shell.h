#pragma once

#include <filesystem>
#include <functional>
#include <stop_token>

#include "app/Configuration.h"
#include "platform/ActionGate.h"
#include "platform/Alerts.h"
#include "platform/BackgroundTasks.h"
#include "platform/FileManager.h"
#include "platform/LoginItem.h"
#include "platform/Notifications.h"
#include "platform/Pasteboard.h"
#include "platform/PersonalStorage.h"
#include "platform/UiThread.h"
#include "platform/UserDefaults.h"
#include "platform/Waiting.h"
#include "platform/Workspace.h"

// The desktop as the controller sees it: one adapter for each capability, none of them owned. All outlive the
// controller.
struct Shell {
    UiThread &ui;
    ActionGate &gate;
    BackgroundTasks &background;
    Waiting &waiting;
    Alerts &alerts;
    Pasteboard &generalPasteboard;
    UserDefaults &standardUserDefaults;
    UserNotifications &notificationCenter;
    Workspace &sharedWorkspace;
    const LoginItem &loginItem;

    Configuration configuration;
    std::filesystem::path home;  // the user's home folder

    // Makes sure that the personal storage server runs; asked only where no host is configured. Blocks;
    // called on worker threads, several at a time.
    std::function<PersonalStorage::Result(const std::stop_token &)> personalStorage;
};
