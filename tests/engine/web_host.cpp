// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "web_host.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QTimer>
#include <QtCore/QUrl>
#include <QtWebKit/QWebHistory>
#include <QtWebKit/QWebSettings>
#include <QtWebKitWidgets/QWebFrame>
#include <QtWebKitWidgets/QWebPage>
#include <QtWebKitWidgets/QWebView>
#include <QtWidgets/QApplication>
#include <cstdio>

#include "vask_test/timeout_factor.h"

namespace vask_test {

namespace {

constexpr int tick_msec = 5;

class talking_page : public QWebPage {
protected:
    void javaScriptConsoleMessage(const QString& message, int line, const QString&) override {
        std::fprintf(stderr, "page, line %d: %s\n", line, qPrintable(message));
    }
};

// The engine knows one application in a process, for the whole of its life.
void make_application() {
    static int argc = 1;
    static char name[] = "web_host";
    static char* argv[] = {name, nullptr};
    static QApplication* application = nullptr;
    if (application != nullptr) {
        return;
    }
    qputenv("QTWEBKIT_PLUGIN_PATH", VASK_TEST_PLUGIN_DIR);
    qputenv("QT_QPA_PLATFORM", "xcb");
    application = new QApplication(argc, argv);
    QWebSettings::globalSettings()->setAttribute(QWebSettings::PluginsEnabled, true);
}

}  // namespace

struct web_host::parts {
    talking_page page;
    QWebView view;
    bool is_loading = false;
    bool is_loaded = false;
};

web_host::web_host() {
    make_application();
    m_parts.reset(new parts);
    m_parts->view.setPage(&m_parts->page);
    m_parts->view.resize(620, 600);
    QObject::connect(&m_parts->page, &QWebPage::loadFinished, [this](bool is_loaded) {
        m_parts->is_loading = false;
        m_parts->is_loaded = is_loaded;
    });
    m_parts->view.show();
}

web_host::~web_host() {
    // The signals of a page that is torn down would reach this object.
    QObject::disconnect(&m_parts->page, nullptr, nullptr, nullptr);
}

bool web_host::load(const std::string& path) {
    m_parts->is_loading = true;
    m_parts->view.load(QUrl::fromLocalFile(QString::fromStdString(path)));
    return wait_for_page();
}

bool web_host::go_back() {
    if (!m_parts->view.history()->canGoBack()) {
        return false;
    }
    m_parts->is_loading = true;
    m_parts->view.back();
    return wait_for_page();
}

bool web_host::wait_for_page() {
    return wait_until([this] { return !m_parts->is_loading; }) && m_parts->is_loaded;
}

std::string web_host::run(const std::string& script) {
    // Encoded, so that no character of the script has a meaning in the text around it.
    const QString as_json =
        QString(
            "(function () {"
            "  try {"
            "    return '' + JSON.stringify(eval(decodeURIComponent('%1')));"
            "  } catch (e) {"
            "    return 'exception: ' + e;"
            "  }"
            "})()")
            .arg(QString(QUrl::toPercentEncoding(QString::fromStdString(script))));
    return m_parts->page.mainFrame()->evaluateJavaScript(as_json).toString().toStdString();
}

bool web_host::wait_until(const std::function<bool()>& condition, int deadline_msec) {
    const qint64 limit = static_cast<qint64>(deadline_msec * timeout_factor());
    QElapsedTimer elapsed;
    elapsed.start();
    QTimer tick;
    tick.start(tick_msec);
    while (!condition()) {
        if (elapsed.elapsed() >= limit) {
            return false;
        }
        QApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

bool web_host::wait_until(const std::string& script) {
    return wait_until([this, &script] { return run(script) == "true"; });
}

void web_host::handle_events() {
    QApplication::processEvents();
}

void web_host::drop_caches() {
    QWebSettings::clearMemoryCaches();
}

unsigned int web_host::pixel(int x, int y) {
    return m_parts->view.grab().toImage().pixel(x, y) & 0xffffffU;
}

bool web_host::save_screenshot(const std::string& path) {
    return m_parts->view.grab().save(QString::fromStdString(path));
}

}  // namespace vask_test
