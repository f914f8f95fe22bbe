// The running application, as far as the controller asks anything of it.
#pragma once

#include "platform/Object.h"

namespace platform {

class Application : public Object
{
public:
    /// Brings the application to the front, also while the user works in another one.
    virtual void activateIgnoringOtherApps() = 0;
    /// Asks the application to end with exit status 0 and returns; the caller's next steps still run.
    virtual void terminate(const Object *sender) = 0;
};

} // namespace platform
