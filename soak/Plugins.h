// Activity: plug-ins are loaded, used and unloaded.
#ifndef SOAK_PLUGINS_H
#define SOAK_PLUGINS_H

#include <string>

#include "Activity.h"

class Plugins : public Activity {
public:
    /// @param folder  where the plug-ins are
    explicit Plugins(std::string folder) : _folder(std::move(folder)) {}

    const char* name() const override { return "plug-ins"; }
    void live(Round& round, Dice& dice) override;

private:
    const std::string _folder;
};

#endif
