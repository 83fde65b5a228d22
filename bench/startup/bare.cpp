// The yardstick: a Qt program that shows one empty window, reporting like the program's first screen does.
#include <QApplication>
#include <QLabel>
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
    // --text: one line of Japanese in the screens' font, the least any screen draws
    if (argc > 1 && QString::fromLocal8Bit(argv[1]) == QLatin1String("--text")) {
        auto* label = new QLabel(QStringLiteral("印刷位置の調整　上 左 高さ"), &window);
        label->setFont(QFont(QStringLiteral("IPAexGothic"), 10));
        label->move(10, 10);
    }
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
