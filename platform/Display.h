#pragma once

#include <string>

// Why no window can be shown, in words for the user; empty if one can. To be asked before the QApplication is
// made, which ends the process without a word that helps.
std::string problemOfDisplay();
