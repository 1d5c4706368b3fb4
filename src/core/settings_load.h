// Start-up's filling of the settings store and the tracking core from the configuration
// file, and their teardown. Lives above the store, the file and the tracking core, so that
// none of those three depends on another.
#pragma once

// Creates the tracking singletons, then loads every persisted setting (the pan and tilt
// gains straight into the controller). Needs the configuration file set up first.
void settings_load(void);
// Frees the connection strings and destroys the tracker, then the controller.
void settings_cleanup(void);
