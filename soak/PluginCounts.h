// What plug-ins tell the host that loads them.
#ifndef SOAK_PLUGIN_COUNTS_H
#define SOAK_PLUGIN_COUNTS_H

/// What became of plug-ins: the host exports these, and plug-ins call them.
enum SoakPluginMoment { soakPluginMade, soakPluginStarted, soakPluginTicked, soakPluginStopped, soakPluginGone };

extern "C" __attribute__((visibility("default"))) void soak_plugin_tells(SoakPluginMoment moment);

#endif
