// The root of everything that can send a message to the controller or receive one from it.
#pragma once

namespace platform {

class Object
{
public:
    Object() = default;
    Object(const Object &) = delete;
    Object &operator=(const Object &) = delete;
    virtual ~Object() = default;
};

} // namespace platform
