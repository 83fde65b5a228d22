// The yardstick: a Qt program that shows one empty window, reporting like the program's first screen does.
#include <QApplication>
#include <QTimer>
#include <QWidget>

#include <cstdio>
#include <cstdlib>
#include <ctime>

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QWidget window;
    window.resize(320, 200);
    window.show();
    QTimer::singleShot(0, &window, [&window] {
        window.repaint();
        timespec ts{};
        clock_gettime(CLOCK_MONOTONIC, &ts);
        std::printf("shown %lld\n", static_cast<long long>(ts.tv_sec) * 1000000000LL + ts.tv_nsec);
        std::fflush(stdout);
        std::_Exit(0);
    });
    return app.exec();
}
