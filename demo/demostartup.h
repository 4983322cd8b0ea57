#ifndef ORVANE_DEMOSTARTUP_H
#define ORVANE_DEMOSTARTUP_H

/// Chooses what has to be chosen before the application object exists: scaling, by whole factors, and sharp
/// pictures on high-density screens, the same on Qt 5 and Qt 6, and the style that applyDemoStyle() gives.
void prepareDemoApplication();

/// Gives the application the Fusion style and, where it can be read and is not empty, the style sheet
/// "styles/dark.qss" in the program's own folder.
void applyDemoStyle();

/// Lets Qt's own menus and dialogs speak Chinese as the demo does, where Qt's translations are installed.
void applyDemoLanguage();

/// Gives every window of the application the demo's icon, and names the desktop file
/// "com.mirelo.OrvaneDemo", by which a desktop knows the menu entry that a window belongs to.
void applyDemoIdentity();

#endif
