#pragma once

class QObject;
class QString;
class QWidget;

// Gives `root` and all widgets in it the accessible description "id=" and their object name, if the
// environment asks for it with QUILLERY_UI_IDS=1: a driver of the program then finds each by its name.
void applyUiIds(QObject &root);

// Gives the widget this accessible description, behind its id where it has one.
void describe(QWidget &widget, const QString &description);
