#pragma once

class UserDefaults;

// The application's settings: whether it starts at login, kept under "enableBootKey".
class LLSettingConfig {
public:
    // The process-wide instance on the standard defaults, created on first use (thread-safe).
    static LLSettingConfig &sharedConfig();

    // Loads the setting: the stored value's boolean meaning, false when absent.
    explicit LLSettingConfig(UserDefaults &defaults);

    bool enableBoot() const { return m_enableBoot; }
    // Does not save.
    void setEnableBoot(bool enableBoot) { m_enableBoot = enableBoot; }

    // Stores the setting as 1 or 0 and writes the defaults at once.
    void save();
    // Removes the stored setting and writes the defaults at once.
    void clear();

private:
    UserDefaults &m_defaults;
    bool m_enableBoot = false;
};
