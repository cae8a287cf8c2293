#include "ui/agent/x11_keys.h"

#include <X11/Xlib.h>
#include <X11/keysym.h>

namespace corvel::x11 {

int scrollLockKey(void* display)
{
    return display ? XKeysymToKeycode(static_cast<Display*>(display), XK_Scroll_Lock) : 0;
}

bool keyDown(void* display, int keycode)
{
    if (!display || keycode <= 0 || keycode > 255) return false;
    char keys[32];
    XQueryKeymap(static_cast<Display*>(display), keys);
    return (keys[keycode / 8] >> (keycode % 8)) & 1;
}

} // namespace corvel::x11
