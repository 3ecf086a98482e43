// Build tool: renders the icon sources (SVG) to the PNG files that go into
// the resource file, so that the pictures are drawn once, at build time, and
// the running program needs no SVG support.
//
// svg2png <source.svg> <target.png> <size>

#include <QCoreApplication>
#include <QImage>
#include <QImageReader>
#include <QSaveFile>
#include <QTextStream>

int main(int argc, char** argv)
{
    // The image plugins are found through the application object; drawing
    // into an image needs no display.
    QCoreApplication app(argc, argv);
    QTextStream err(stderr);
    const QStringList args = app.arguments();
    bool sizeOk = false;
    const int size = args.size() == 4 ? args.at(3).toInt(&sizeOk) : 0;
    if (!sizeOk || size <= 0) {
        err << "usage: svg2png <source.svg> <target.png> <size>\n";
        return 2;
    }
    QImageReader reader(args.at(1), "svg");
    reader.setScaledSize(QSize(size, size));
    const QImage image = reader.read();
    if (image.isNull()) {
        err << "svg2png: " << args.at(1) << ": " << reader.errorString() << "\n";
        return 1;
    }
    QSaveFile out(args.at(2));
    if (!out.open(QIODevice::WriteOnly) || !image.save(&out, "PNG") || !out.commit()) {
        err << "svg2png: cannot write " << args.at(2) << "\n";
        return 1;
    }
    return 0;
}
