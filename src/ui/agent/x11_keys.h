#pragma once

// The push-to-talk key on an X display, asked of the server directly so that it is seen
// whichever window has the focus. Kept apart from Qt: Xlib's macros clash with Qt's names.
namespace corvel::x11 {

// The key code of Scroll Lock on `display` (an Xlib Display*), 0 when it has none.
int scrollLockKey(void* display);
// Whether the key is held down now.
bool keyDown(void* display, int keycode);

} // namespace corvel::x11
