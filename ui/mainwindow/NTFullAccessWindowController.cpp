#include "ui/mainwindow/NTFullAccessWindowController.h"

#include "system/MuLanguage.h"
#include "system/NTFullDiskAccessAuthorizer.h"
#include "ui/controls/Interaction.h"
#include "ui/controls/LLImage.h"
#include "ui/mainwindow/HelperSocketUnit.h"
#include "ui_NTFullAccessWindowController.h"

#include <QCoreApplication>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {

// Lets the modal session unwind before the browser comes forward.
constexpr int kOpenDelayMilliseconds = 300;

} // namespace

NTFullAccessWindowController::NTFullAccessWindowController(QWidget *parent,
                                                           SocketUnitProbe socketUnitEnabled)
    : NTModalWindowController(parent)
    , m_ui(std::make_unique<Ui::NTFullAccessWindowController>()) {
    m_ui->setupUi(this);
    windowDidLoad(socketUnitEnabled ? socketUnitEnabled
                                    : [] { return HelperSocketUnit::isEnabled(); });
}

NTFullAccessWindowController::~NTFullAccessWindowController() = default;

void NTFullAccessWindowController::present(QWidget *parent) {
    NTFullAccessWindowController controller(parent ? parent->window() : nullptr);
    controller.runModalCentredOn(parent);
}

int NTFullAccessWindowController::languageIndex(const QVariant &appleLanguages) {
    // The interface language comes from the same value, so picture and texts always agree.
    static const QStringList byIndex{u"en"_s, u"zh-Hans"_s, u"ja"_s, u"fr"_s, u"de"_s};
    return qMax(0, byIndex.indexOf(MuLanguage::languageForPreferredLanguages(appleLanguages)));
}

QString NTFullAccessWindowController::imageName(int languageIndex, bool socketUnitEnabled) {
    static const QStringList codes{u"en"_s, u"zh"_s, u"ja"_s, u"fr"_s, u"de"_s};
    return u"fullaccess_"_s % codes.value(languageIndex, codes.first()) %
           (socketUnitEnabled ? u"_13"_s : u"_12"_s);
}

void NTFullAccessWindowController::windowDidLoad(const SocketUnitProbe &socketUnitEnabled) {
    const int language = languageIndex(MuLanguage::preferredLanguages());
    imageView()->setImage(LLImage::imageNamed(imageName(language, socketUnitEnabled())));

    QFont titleFont = titleField()->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.25);
    titleFont.setBold(true);
    titleField()->setFont(titleFont);
    titleField()->setText(qtTrId("permission_accessibility_title"));
    subTitleField()->setText(qtTrId("permission_accessibility_subtitle"));
    authButton()->setText(qtTrId("permission_accessibility_startAuth"));
    setWindowTitle(titleField()->text());
    imageView()->setAccessibleName(titleField()->text());
    imageView()->setAccessibleDescription(subTitleField()->text());
    connect(authButton(), &QPushButton::clicked, this, &NTFullAccessWindowController::startAuth);

    observeWindowWillClose();
}

void NTFullAccessWindowController::startAuth() {
    close();
    QTimer::singleShot(kOpenDelayMilliseconds, QCoreApplication::instance(), [] {
        Interaction::shared().openUrl(NTFullDiskAccessAuthorizer::preferencesUrl());
    });
}

NTImageView *NTFullAccessWindowController::imageView() const {
    return m_ui->imageView;
}

QLabel *NTFullAccessWindowController::titleField() const {
    return m_ui->titleField;
}

QLabel *NTFullAccessWindowController::subTitleField() const {
    return m_ui->subTitleField;
}

LLButton *NTFullAccessWindowController::authButton() const {
    return m_ui->authButton;
}
