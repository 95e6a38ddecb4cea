#include "system/LLSettingConfig.h"

#include "system/UserDefaults.h"

using namespace Qt::StringLiterals;

namespace {
const QString kEnableBootKey = u"enableBootKey"_s;
}

LLSettingConfig &LLSettingConfig::sharedConfig() {
    static LLSettingConfig instance(UserDefaults::standard());
    return instance;
}

LLSettingConfig::LLSettingConfig(UserDefaults &defaults)
    : m_defaults(defaults) {
    if (m_defaults.objectForKey(kEnableBootKey).isValid())
        m_enableBoot = m_defaults.boolForKey(kEnableBootKey);
}

void LLSettingConfig::save() {
    m_defaults.setInteger(m_enableBoot ? 1 : 0, kEnableBootKey);
    m_defaults.synchronize();
}

void LLSettingConfig::clear() {
    m_defaults.removeObjectForKey(kEnableBootKey);
    m_defaults.synchronize();
}
