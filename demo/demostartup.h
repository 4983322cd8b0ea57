#ifndef ORVANE_DEMOSTARTUP_H
#define ORVANE_DEMOSTARTUP_H

/// Switches on scaling and sharp pictures on high-density screens. To be called before the application
/// object exists. Qt 6 always does both.
void enableHighDpi();

/// Gives the application the Fusion style and, where it can be read and is not empty, the style sheet
/// "styles/dark.qss" in the program's own folder.
void applyDemoStyle();

#endif
