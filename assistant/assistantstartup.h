#ifndef ORVANE_ASSISTANTSTARTUP_H
#define ORVANE_ASSISTANTSTARTUP_H

#include <QString>

/// Chooses what has to be chosen before the application object exists: scaling, by whole factors, and sharp
/// pictures on high-density screens, the same on Qt 5 and Qt 6.
void prepareAssistantApplication();

/// Names the application, by which its data, its settings and its menu entry are found, and gives its windows
/// the icon. Needs an application object.
void applyAssistantIdentity();

/// Lets the program and Qt's own menus speak @p language, "zh" or "en", or where it is empty that of the
/// system: Chinese where that is Chinese, else English. What has no translation is Chinese. Earlier calls are
/// undone.
void applyAssistantLanguage(const QString &language);

/// Changes the colours of the system as little as it takes to read what is selected, and what a field says
/// while it is empty, with a contrast of at least 4.5:1. Styles have less.
void applyReadableColors();

/// Gives the application a style and colours that are light or dark, whatever those of the system are.
void applyAssistantColors(bool isDark);

#endif
