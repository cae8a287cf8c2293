#pragma once

#include <QApplication>

namespace corvel::testing {

// The one QApplication of a test program, made by whichever test needs it first.
inline void ensureQApplication()
{
    if (QCoreApplication::instance()) return;
    static int argc = 1;
    static char name[] = "corvel_ui_tests";
    static char* argv[] = {name, nullptr};
    static QApplication application(argc, argv);
}

} // namespace corvel::testing
