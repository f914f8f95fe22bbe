// The settings store of the user that the tests run as.
#pragma once

#include "desktop/application/QtUserDefaults.h"

class StoredDefaults : public QtUserDefaults
{
public:
    StoredDefaults()
        : QtUserDefaults(platform::systemLocalLookups())
    {
    }
};
