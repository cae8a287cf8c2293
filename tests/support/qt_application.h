#pragma once

#include <QApplication>

namespace corvel::testing {

// The one QApplication of a test program, made by whichever test needs it first. It is never
// destroyed: as a static it would go after Qt's own statics and crash the program at exit.
inline void ensureQApplication()
{
    if (QCoreApplication::instance()) return;
    static int argc = 1;
    static char name[] = "corvel_ui_tests";
    static char* argv[] = {name, nullptr};
    new QApplication(argc, argv);
}

} // namespace corvel::testing
