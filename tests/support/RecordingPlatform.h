// A platform that notes, in one list, every command that the controller gives, and fails where a test tells it to.
#pragma once

#include "platform/PlatformException.h"
#include "report/AppController.h"

#include <QTimeZone>

#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/// The commands of one test, in the order in which they were given.
class Calls
{
public:
    using List = std::vector<std::string>;

    /// Notes a command, then does what was put down for it.
    void note(const std::string &command)
    {
        list.push_back(command);
        ask(command);
    }

    /// Does what was put down for a question. It is not noted: nobody needs to know in which order questions are asked,
    /// and what comes of the answers is seen.
    void ask(const std::string &question)
    {
        if (const auto found = actions.find(question); found != actions.end()) {
            found->second();
        }
    }

    /// What happens inside the command or the question.
    void on(const std::string &call, std::function<void()> action) { actions[call] = std::move(action); }

    /// Makes the command or the question raise the platform's exception.
    void failAt(const std::string &call)
    {
        on(call, [] { throw platform::PlatformException(QStringLiteral("TestFailure"), QStringLiteral("as asked")); });
    }

    /// Makes the command or the question raise an exception of another kind.
    void failOtherwiseAt(const std::string &call)
    {
        on(call, [] { throw std::runtime_error("of another kind"); });
    }

    /// The commands since the last call of this function.
    List taken() { return std::exchange(list, {}); }

private:
    List list;
    std::map<std::string, std::function<void()>> actions;
};

/// The lists one after the other.
inline Calls::List joined(std::initializer_list<Calls::List> lists)
{
    Calls::List all;
    for (const Calls::List &list : lists) {
        all.insert(all.end(), list.begin(), list.end());
    }
    return all;
}

inline std::string yesNo(bool value)
{
    return value ? "yes" : "no";
}

inline std::string describe(const platform::Rect &rect)
{
    const auto number = [](double value) { return QString::number(value).toStdString(); };
    return number(rect.x) + "," + number(rect.y) + " " + number(rect.width) + "x" + number(rect.height);
}

class RecordingWindow : public platform::Window
{
public:
    explicit RecordingWindow(Calls &noted)
        : calls(noted)
    {
    }

    platform::Rect frame() const override
    {
        calls.ask("mainWindow frame");
        return rect;
    }
    void setFrameDisplayAnimate(const platform::Rect &frame, platform::Display display,
                                platform::Animation animation) override
    {
        calls.note("mainWindow setFrame " + describe(frame) + " display " + yesNo(display == platform::Display::On)
                   + " animate " + yesNo(animation == platform::Animation::On));
        rect = frame;
    }
    void makeKeyAndOrderFront(const platform::Object *sender) override
    {
        lastSender = sender;
        calls.note("mainWindow makeKeyAndOrderFront");
    }

    platform::Rect rect = {.x = 40, .y = 300, .width = 640, .height = 500};
    const platform::Object *lastSender = nullptr;

private:
    Calls &calls;
};

class RecordingView : public platform::View
{
public:
    explicit RecordingView(Calls &noted)
        : calls(noted)
    {
    }

    bool isHidden() const override
    {
        calls.ask("logView isHidden");
        return hidden;
    }
    void setHidden(bool nowHidden) override
    {
        calls.note("logView setHidden " + yesNo(nowHidden));
        hidden = nowHidden;
    }
    platform::Rect frame() const override
    {
        calls.ask("logView frame");
        return rect;
    }

    bool hidden = false;
    platform::Rect rect = {.x = 0, .y = 0, .width = 640, .height = 200};

private:
    Calls &calls;
};

class RecordingTextField : public platform::TextField
{
public:
    RecordingTextField(std::string fieldName, Calls &noted)
        : name(std::move(fieldName))
        , calls(noted)
    {
    }

    QString stringValue() const override
    {
        calls.ask(name + " stringValue");
        return text;
    }
    void setStringValue(const QString &newText) override
    {
        calls.note(name + " setStringValue");
        text = newText;
    }
    void setEnabled(bool nowEnabled) override
    {
        calls.note(name + " setEnabled " + yesNo(nowEnabled));
        enabled = nowEnabled;
    }

    QString text;
    bool enabled = true;

private:
    std::string name;
    Calls &calls;
};

class RecordingTextView : public platform::TextView
{
public:
    RecordingTextView(std::string viewName, Calls &noted)
        : name(std::move(viewName))
        , calls(noted)
    {
    }

    QString string() const override
    {
        calls.ask(name + " string");
        return text;
    }
    void setString(const QString &newText) override
    {
        calls.note(name + " setString");
        text = newText;
    }
    void setEditable(bool nowEditable) override
    {
        calls.note(name + " setEditable " + yesNo(nowEditable));
        editable = nowEditable;
    }

    QString text;
    bool editable = true;

private:
    std::string name;
    Calls &calls;
};

class RecordingButton : public platform::Button
{
public:
    RecordingButton(std::string buttonName, Calls &noted)
        : name(std::move(buttonName))
        , calls(noted)
    {
    }

    void setState(int newState) override
    {
        calls.note(name + " setState " + std::to_string(newState));
        state = newState;
    }
    void setTitle(const QString &newTitle) override
    {
        calls.note(name + " setTitle " + newTitle.toStdString());
        title = newTitle;
    }
    void setEnabled(bool nowEnabled) override
    {
        calls.note(name + " setEnabled " + yesNo(nowEnabled));
        enabled = nowEnabled;
    }

    int state = platform::kStateOn;
    QString title = QStringLiteral("Report Crash");
    bool enabled = true;

private:
    std::string name;
    Calls &calls;
};

class RecordingSpinner : public platform::ProgressIndicator
{
public:
    explicit RecordingSpinner(Calls &noted)
        : calls(noted)
    {
    }

    void setUsesThreadedAnimation(bool threaded) override
    {
        calls.note("spinner setUsesThreadedAnimation " + yesNo(threaded));
    }
    void startAnimation(const platform::Object *sender) override
    {
        lastSender = sender;
        calls.note("spinner startAnimation");
        turning = true;
    }
    void stopAnimation(const platform::Object *sender) override
    {
        lastSender = sender;
        calls.note("spinner stopAnimation");
        turning = false;
    }
    void setNeedsDisplay(bool needsDisplay) override { calls.note("spinner setNeedsDisplay " + yesNo(needsDisplay)); }

    bool turning = false;
    const platform::Object *lastSender = nullptr;

private:
    Calls &calls;
};

class RecordingApplication : public platform::Application
{
public:
    explicit RecordingApplication(Calls &noted)
        : calls(noted)
    {
    }

    void activateIgnoringOtherApps() override { calls.note("application activateIgnoringOtherApps yes"); }
    void terminate(const platform::Object *sender) override
    {
        lastSender = sender;
        calls.note("application terminate");
    }

    const platform::Object *lastSender = nullptr;

private:
    Calls &calls;
};

class RecordingAlertPanel : public platform::AlertPanel
{
public:
    explicit RecordingAlertPanel(Calls &noted)
        : calls(noted)
    {
    }

    void runAlertPanel(const QString &title, const QString &message) override
    {
        calls.note("alert " + title.toStdString() + " / " + message.toStdString());
    }

private:
    Calls &calls;
};

class RecordingUserDefaults : public platform::UserDefaults
{
public:
    explicit RecordingUserDefaults(Calls &noted)
        : calls(noted)
    {
    }

    qint64 integerForKey(const QString &key) const override
    {
        calls.ask("defaults integerForKey " + key.toStdString());
        return values.value(key).toLongLong();
    }
    std::optional<QVariant> objectForKey(const QString &key) const override
    {
        calls.ask("defaults objectForKey " + key.toStdString());
        const auto found = values.constFind(key);
        return found == values.constEnd() ? std::nullopt : std::optional(*found);
    }
    void setIntegerForKey(qint64 value, const QString &key) override
    {
        calls.note("defaults setInteger " + std::to_string(value) + " forKey " + key.toStdString());
        values[key] = value;
    }
    void setObjectForKey(const QVariant &value, const QString &key) override
    {
        calls.note("defaults setObject forKey " + key.toStdString());
        values[key] = value;
    }
    void synchronize() override { calls.note("defaults synchronize"); }

    QVariantMap values;

private:
    Calls &calls;
};

class RecordingProcessInfo : public platform::ProcessInfo
{
public:
    explicit RecordingProcessInfo(Calls &noted)
        : calls(noted)
    {
    }

    QStringList arguments() const override
    {
        calls.ask("process arguments");
        return argumentList;
    }
    QString globallyUniqueString() const override
    {
        calls.ask("process globallyUniqueString");
        return QStringLiteral("unique-%1").arg(++given);
    }

    QStringList argumentList = {QStringLiteral("/usr/bin/korvale-crash-reporter")};

private:
    Calls &calls;
    mutable int given = 0;
};

class FixedClock : public platform::Clock
{
public:
    explicit FixedClock(Calls &noted)
        : calls(noted)
    {
    }

    QDateTime date() const override
    {
        calls.ask("clock date");
        return now;
    }

    QDateTime now = QDateTime(QDate(2026, 11, 2), QTime(10, 15), QTimeZone::utc());

private:
    Calls &calls;
};

class RecordingDiagnosticLog : public platform::DiagnosticLog
{
public:
    explicit RecordingDiagnosticLog(Calls &noted)
        : calls(noted)
    {
    }

    void log(const QString &line) override { calls.note("log " + line.toStdString()); }

private:
    Calls &calls;
};

class RecordingConnection : public platform::UrlConnection
{
public:
    RecordingConnection(std::string connectionName, Calls &noted)
        : name(std::move(connectionName))
        , calls(noted)
    {
    }

    void cancel() override { calls.note(name + " cancel"); }

private:
    std::string name;
    Calls &calls;
};

/// Hands out transfers named "transfer 1", "transfer 2", ... that do nothing by themselves.
class RecordingUrlLoader : public platform::UrlLoader
{
public:
    explicit RecordingUrlLoader(Calls &noted)
        : calls(noted)
    {
    }

    std::shared_ptr<platform::UrlConnection>
    connectionWithRequestDelegate(const platform::UrlRequest &request,
                                  platform::UrlConnectionDelegate &delegate) override
    {
        calls.note("loader " + request.method.toStdString() + " "
                   + request.url.toString(QUrl::FullyEncoded).toStdString());
        requests.push_back(request);
        delegates.push_back(&delegate);
        if (!canCreate) {
            return nullptr;
        }
        auto connection = std::make_shared<RecordingConnection>("transfer " + std::to_string(requests.size()), calls);
        created.push_back(connection);
        return connection;
    }

    bool canCreate = true;
    std::vector<platform::UrlRequest> requests;
    std::vector<platform::UrlConnectionDelegate *> delegates;
    std::vector<std::weak_ptr<RecordingConnection>> created;

private:
    Calls &calls;
};

/// Keeps the last report that it heard of.
class LastReport : public platform::ReportListener
{
public:
    explicit LastReport(const RecordingTextView &shown)
        : logText(shown)
    {
    }

    void reportLoaded(const platform::LoadedReport &loaded) override
    {
        report = loaded;
        textWhenHeard = logText.text;
    }

    platform::LoadedReport report;
    QString textWhenHeard;

private:
    const RecordingTextView &logText;
};

/// The controller with its instance variables in reach.
class PublicController : public AppController
{
public:
    using AppController::AppController;
    using AppController::appName;
    using AppController::connection;
    using AppController::logOpened;
    using AppController::responseData;
    using AppController::silentOutput;
};

/// A report window and its controller on the recording platform.
struct RecordingPlatform {
    Calls calls;
    RecordingWindow mainWindow{calls};
    RecordingTextField initialInfo{"initialInfo", calls};
    RecordingButton disclosureBtn{"disclosureBtn", calls};
    RecordingView logView{calls};
    RecordingTextView logText{"logText", calls};
    RecordingTextView infoText{"infoText", calls};
    RecordingTextField emailText{"emailText", calls};
    RecordingButton submitBtn{"submitBtn", calls};
    RecordingSpinner spinner{calls};
    RecordingApplication application{calls};
    RecordingAlertPanel alertPanel{calls};
    RecordingUserDefaults userDefaults{calls};
    RecordingUrlLoader urlLoader{calls};
    RecordingProcessInfo processInfo{calls};
    FixedClock clock{calls};
    RecordingDiagnosticLog diagnosticLog{calls};
    LastReport reportListener{logText};
    PublicController controller{controls(), services()};

    platform::ReportControls controls()
    {
        return {.mainWindow = mainWindow,
                .initialInfo = initialInfo,
                .disclosureBtn = disclosureBtn,
                .logView = logView,
                .logText = logText,
                .infoText = infoText,
                .emailText = emailText,
                .submitBtn = submitBtn,
                .spinner = spinner};
    }

    PlatformServices services()
    {
        return {.application = application,
                .alertPanel = alertPanel,
                .userDefaults = userDefaults,
                .urlLoader = urlLoader,
                .processInfo = processInfo,
                .clock = clock,
                .diagnosticLog = diagnosticLog,
                .reportListener = reportListener,
                .submissionHost = QStringLiteral("crash.example.org")};
    }
};
