#pragma once

namespace nimbrel {

// Stores value in an observable property's field and announces it, only when it changes.
template <class Owner, class T, class U>
void updateProperty(Owner* owner, T& field, U&& value, void (Owner::*changed)())
{
    if (field == value)
        return;
    field = static_cast<U&&>(value);
    (owner->*changed)();
}

} // namespace nimbrel
