// A window to drag files from: the files that the command line names, from anywhere in it. It proposes to move them, as
// file managers do, and says what becomes of them where the pointer is: "copy" where they are welcome and stay.
#include <QApplication>
#include <QDrag>
#include <QMimeData>
#include <QUrl>
#include <QWidget>

#include <cstdio>

namespace {

class DragSource : public QWidget
{
public:
    explicit DragSource(const QStringList &paths)
    {
        for (const QString &path : paths) {
            urls += QUrl::fromLocalFile(path);
        }
    }

protected:
    void mousePressEvent(QMouseEvent * /*event*/) override
    {
        auto *drag = new QDrag(this);
        auto *files = new QMimeData;
        files->setUrls(urls);
        drag->setMimeData(files);
        connect(drag, &QDrag::actionChanged, [](Qt::DropAction action) {
            std::puts(action == Qt::CopyAction ? "copy" : "nothing");
            std::fflush(stdout);
        });
        drag->exec(Qt::CopyAction | Qt::MoveAction, Qt::MoveAction);
    }

private:
    QList<QUrl> urls;
};

} // namespace

int main(int argc, char **argv)
{
    const QApplication application(argc, argv);
    QGuiApplication::setDesktopFileName(QStringLiteral("drag-source"));
    DragSource window(QCoreApplication::arguments().mid(1));
    window.resize(100, 100);
    window.show();
    return QApplication::exec();
}
