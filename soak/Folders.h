// Activity: folders are made, listed, moved and removed.
#ifndef SOAK_FOLDERS_H
#define SOAK_FOLDERS_H

#include "Activity.h"
#include "Folder.h"

class Folders : public Activity {
public:
    /// @param folder  must outlive the activity
    explicit Folders(const Folder& folder) : _folder(folder) {}

    const char* name() const override { return "folders"; }
    void live(Round& round, Dice& dice) override;

private:
    const Folder& _folder;
};

#endif
