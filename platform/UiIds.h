#pragma once

class QObject;

// With QUILLERY_UI_IDS=1 in the environment, every named interface element below `root` carries the
// accessible description "id=" + its object name, so that a test or an assistive script finds it whatever it
// shows.
void applyUiIds(QObject &root);
