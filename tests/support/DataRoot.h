// The data folders of a computer of a test's own.
#pragma once

#include "sources/WorkgroupFiles.h"
#include "support/Document.h"
#include "support/Registry.h"
#include "support/TestRoot.h"

class CDataRoot {
  public:
    explicit CDataRoot(const std::filesystem::path& root) : m_folder(root / "data") {
        for (const char* folder : {"PluginData", "GpoData", "TesselData"}) {
            std::filesystem::create_directories(m_folder / folder);
        }
        testreg::PutString(W("SOFTWARE\\Orvantis"), W("OrvantisPath"), WidePath(m_folder));
    }

    std::filesystem::path PathOf(const PolicySource& source) const {
        static constexpr const char* kFolders[] = {"", "PluginData", "GpoData", "TesselData"};
        return m_folder / kFolders[source.folder] / Narrow(source.file);
    }
    void Write(const PolicySource& source, const std::string& document) const {
        std::ofstream(PathOf(source), std::ios::binary) << document;
    }
    const std::filesystem::path& Folder() const { return m_folder; }

  private:
    std::filesystem::path m_folder;
};

// The parts of documents.
inline std::string ItemXml(const std::string& name, const std::string& type, const std::string& data) {
    return "<Item><Name>" + name + "</Name><Type>" + type + "</Type><Data>" + data + "</Data></Item>";
}
inline std::string GroupXml(const std::string& name, const std::string& items) {
    return "<Group><Name>" + name + "</Name>" + items + "</Group>";
}
inline std::string SettingsXml(const std::string& items) {
    return "<r><Items>" + GroupXml("Policies", items) + "</Items></r>";
}
inline std::string ListXml(const std::string& name, std::initializer_list<const char*> masks) {
    std::string xml = "<" + name + "><PolicyItems>";
    for (const char* mask : masks) xml += std::string("<PolicyItem>") + mask + "</PolicyItem>";
    return xml + "</PolicyItems></" + name + ">";
}
