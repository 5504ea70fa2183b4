// Activity: files are patched, and compared with a model.
#ifndef SOAK_FILES_H
#define SOAK_FILES_H

#include "Activity.h"
#include "Folder.h"

class Files : public Activity {
public:
    /// @param folder  must outlive the activity
    explicit Files(const Folder& folder) : _folder(folder) {}

    const char* name() const override { return "files"; }
    void live(Round& round, Dice& dice) override;

private:
    const Folder& _folder;
};

#endif
