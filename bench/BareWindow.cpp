// What the report window is measured against: a window with the same kinds of controls, and nothing behind them.
#include <QApplication>
#include <QDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QStyle>
#include <QToolButton>

using namespace Qt::StringLiterals;

int main(int argc, char **argv)
{
    const QApplication application(argc, argv);
    QDialog window(nullptr, Qt::Window);
    auto *column = new QVBoxLayout(&window);
    auto *head = new QHBoxLayout;
    auto *icon = new QLabel(&window);
    icon->setPixmap(window.style()->standardPixmap(QStyle::SP_MessageBoxWarning));
    auto *headline = new QLabel(u"The client running on anvil crashed the last time it ran. "
                                "Please submit a bug report so we can prevent this occurring in future."_s);
    QFont bold = headline->font();
    bold.setBold(true);
    headline->setFont(bold);
    headline->setWordWrap(true);
    head->addWidget(icon);
    head->addWidget(headline, 1);
    column->addLayout(head);
    const auto addLabelled = [column](const QString &name, QWidget *field, int stretch) {
        auto *label = new QLabel(name);
        label->setBuddy(field);
        column->addWidget(label);
        column->addWidget(field, stretch);
    };
    addLabelled(u"&E-mail address, in case we have questions about the crash (optional)"_s, new QLineEdit, 0);
    addLabelled(u"De&scription of what you were doing"_s, new QPlainTextEdit, 1);
    auto *details = new QHBoxLayout;
    auto *triangle = new QToolButton;
    triangle->setText(u"Report &details"_s);
    triangle->setArrowType(Qt::RightArrow);
    triangle->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    details->addWidget(triangle);
    details->addWidget(new QLabel(u"Harbour_1.crash (1.0 MiB), sent to localhost"_s), 1);
    column->addLayout(details);
    auto *buttons = new QHBoxLayout;
    auto *spinner = new QProgressBar;
    spinner->hide();
    buttons->addWidget(spinner);
    buttons->addStretch(1);
    buttons->addWidget(new QPushButton(u"Do&n't Send"_s));
    auto *submit = new QPushButton(u"&Report Crash"_s);
    submit->setDefault(true);
    buttons->addWidget(submit);
    column->addLayout(buttons);
    window.show();
    return QApplication::exec();
}
