#include "support/profileform.h"

#include <QPointer>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

// What a slot of configChanged() may do to the form.
class TestModelConfigWidgetSlots : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void formMayBeDeletedInAnyReport_data();
    void formMayBeDeletedInAnyReport();
    void profileChosenInAReportIsTheOneShown_data();
    void profileChosenInAReportIsTheOneShown();
    void profilesSetInAReportAreTheOnesShown();
    void providerChosenInAReportKeepsTheProfilesTexts();
};

void TestModelConfigWidgetSlots::formMayBeDeletedInAnyReport_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<int>("fatalReport");
    for (int report = 1; report <= 5; ++report)
        QTest::addRow("setProfiles, report %d", report) << "setProfiles" << report;
    for (int report = 1; report <= 4; ++report)
        QTest::addRow("picked profile, report %d", report) << "profile" << report;
    for (int report = 1; report <= 3; ++report)
        QTest::addRow("picked provider, report %d", report) << "provider" << report;
    QTest::newRow("typed text") << "text" << 1;
}

void TestModelConfigWidgetSlots::formMayBeDeletedInAnyReport()
{
    QFETCH(QString, action);
    QFETCH(int, fatalReport);
    const QPointer<ModelConfigWidget> widget(new ModelConfigWidget);
    if (action != "setProfiles")
        widget->setProfiles(threeProfiles() << withDefaults("openai"), action == "provider" ? 3 : 0);
    const QPointer<QLineEdit> baseUrl(widget->findChild<QLineEdit *>("baseUrlEdit"));
    auto *profiles = widget->findChild<QComboBox *>("profileCombo");
    auto *providers = widget->findChild<QComboBox *>("providerCombo");
    int reports = 0;
    connect(widget, &ModelConfigWidget::configChanged, this, [&] {
        if (++reports == fatalReport)
            delete widget;
    });

    if (action == "setProfiles")
        widget->setProfiles(threeProfiles(), 2);
    else if (action == "profile")
        profiles->setCurrentIndex(1);
    else if (action == "provider")
        providers->setCurrentIndex(2);
    else
        QTest::keyClick(baseUrl, Qt::Key_X);

    QVERIFY(widget.isNull());
    QCOMPARE(reports, fatalReport);
    QTRY_VERIFY(baseUrl.isNull());
}

void TestModelConfigWidgetSlots::profileChosenInAReportIsTheOneShown_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<int>("firstChoice");
    QTest::addColumn<int>("choices");
    const QVector<QPair<QString, int>> actions{
        {"setProfiles", 5}, {"profile", 4}, {"provider", 3}, {"text", 1}};
    for (const auto &action : actions) {
        for (int report = 1; report <= action.second; ++report)
            QTest::addRow("%s, in report %d", qPrintable(action.first), report)
                << action.first << report << 1;
        QTest::addRow("%s, in every report", qPrintable(action.first)) << action.first << 1 << 10;
    }
}

void TestModelConfigWidgetSlots::profileChosenInAReportIsTheOneShown()
{
    QFETCH(QString, action);
    QFETCH(int, firstChoice);
    QFETCH(int, choices);
    QList<ModelConfig> profiles = threeProfiles() << withDefaults("openai");
    for (int i = 0; i < profiles.size(); ++i)
        profiles[i].maxTokens = 100 + i;
    ProfileForm form;
    form.widget.setProfiles(profiles, action == "setProfiles" ? 0 : 3);
    int reports = 0;
    QString lastReport;
    connect(&form.widget, &ModelConfigWidget::configChanged, &form.widget, [&] {
        ++reports;
        if (reports >= firstChoice && reports < firstChoice + choices)
            form.profiles->setCurrentIndex((form.profiles->currentIndex() + 1) % int(profiles.size()));
        lastReport = textOf(form.widget.currentConfig());
    });

    if (action == "setProfiles")
        form.widget.setProfiles(profiles, 2);
    else if (action == "profile")
        form.profiles->setCurrentIndex(1);
    else if (action == "provider")
        form.pickProvider("deepseek");
    else
        QTest::keyClick(form.baseUrl, Qt::Key_X);

    QVERIFY(reports >= firstChoice + choices);
    QCOMPARE(textOf(form.widget.currentConfig()), textOf(profiles.at(form.profiles->currentIndex())));
    QCOMPARE(lastReport, textOf(form.widget.currentConfig()));
}

void TestModelConfigWidgetSlots::profilesSetInAReportAreTheOnesShown()
{
    for (int report = 1; report <= 5; ++report) {
        const QList<ModelConfig> others{profile("other", "deepseek", "http://o", "ko", "mo")};
        ProfileForm form;
        int reports = 0;
        connect(&form.widget, &ModelConfigWidget::configChanged, &form.widget, [&] {
            if (++reports == report)
                form.widget.setProfiles(others, 0);
        });
        form.widget.setProfiles(threeProfiles(), 1);
        QCOMPARE(form.profiles->count(), 1);
        QCOMPARE(textOf(form.widget.currentConfig()), textOf(others.first()));
    }
}

void TestModelConfigWidgetSlots::providerChosenInAReportKeepsTheProfilesTexts()
{
    ProfileForm form;
    form.widget.setProfiles({withDefaults("openai"), profile("second", "openai", "http://b", "kb", "mb")}, 0);
    connect(&form.widget, &ModelConfigWidget::configChanged, &form.widget,
            [&] { form.pickProvider("deepseek"); });
    form.profiles->setCurrentIndex(1);
    QCOMPARE(textOf(form.widget.currentConfig()),
             textOf(profile("second", "deepseek", "http://b", "kb", "mb")));
}

QTEST_MAIN(TestModelConfigWidgetSlots)
#include "tst_modelconfigwidget_slots.moc"
