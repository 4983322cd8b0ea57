#ifndef ORVANE_ASSISTANTSTARTUP_H
#define ORVANE_ASSISTANTSTARTUP_H

/// Chooses what has to be chosen before the application object exists: scaling and sharp pictures on
/// high-density screens, the same on Qt 5 and Qt 6.
void prepareAssistantApplication();

/// Names the application, by which its data and settings are found. Needs an application object.
void applyAssistantIdentity();

#endif
