// Settings documents: read, walked and inserted, beside libxml2's tree and a walk through it.
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "Items.h"
#include "Measure.h"
#include "sources/XMLPolicyReader.h"

namespace bench {

namespace {

std::string MakeDocument(const std::vector<Item>& items) {
    std::string xml = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Settings><Items><Group><Name>Policies</Name>\n";
    char digits[32];
    for (const Item& item : items) {
        std::snprintf(digits, sizeof digits, "%X", item.number);
        xml += "<Item><Name>" + item.name + "</Name><Type>" + (item.isString ? "REG_SZ" : "REG_DWORD") +
               "</Type><Data>" + (item.isString ? item.text : digits) + "</Data></Item>\n";
    }
    return xml + "</Group></Items></Settings>\n";
}

struct Document {
    explicit Document(std::size_t count) : items(count), text(MakeDocument(MakeItems(count))) {
        const auto path = std::filesystem::absolute("bench-" + std::to_string(count) + ".xml");
        std::ofstream(path, std::ios::binary) << text;
        file = path.u16string();
    }
    std::size_t items;
    std::string text;
    wstr file;
};

// As a load reads a source.
void Ours(const Document& document) {
    CPolicyMap map;
    CExtXMLPolicyReader reader(document.file.c_str(), map);
    WalkPolicyDocument(reader, PolicyForm::kSettings);
    Must(map.Size() == document.items, "settings document");
}

void Libxml(const Document& document) {
    xmlDoc* doc = xmlReadMemory(document.text.data(), static_cast<int>(document.text.size()), nullptr, nullptr,
                                XML_PARSE_NONET | XML_PARSE_HUGE | XML_PARSE_NOBLANKS);
    Must(doc != nullptr, "libxml2");
    std::size_t items = 0;
    for (xmlNode* item = xmlDocGetRootElement(doc)->children->children->children; item; item = item->next) {
        if (item->type != XML_ELEMENT_NODE || xmlStrcmp(item->name, BAD_CAST "Item") != 0) continue;
        std::size_t sum = 0;
        for (xmlNode* field = item->children; field; field = field->next) {
            if (field->type != XML_ELEMENT_NODE || !field->children) continue;
            sum += std::string_view(reinterpret_cast<const char*>(field->children->content)).size();
        }
        Keep(sum);
        ++items;
    }
    xmlFreeDoc(doc);
    Must(items == document.items, "libxml2's walk");
}

Work Times(void (*read)(const Document&), const Document& document) {
    return [read, &document](std::uint64_t times) {
        for (; times; --times) read(document);
    };
}

long PeakKilobytes() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// In a process of its own, whose peak is that of the one load: what the program itself takes is there before.
void PeakMemory(const Document& document) {
    int pipeEnds[2];
    Must(pipe(pipeEnds) == 0, "pipe");
    const pid_t child = fork();
    if (child == 0) {
        const long before = PeakKilobytes();
        Ours(document);
        const long grown = PeakKilobytes() - before;
        _exit(write(pipeEnds[1], &grown, sizeof grown) == sizeof grown ? 0 : 1);
    }
    long grown = 0;
    int status = 0;
    Must(read(pipeEnds[0], &grown, sizeof grown) == sizeof grown, "peak memory");
    Must(waitpid(child, &status, 0) == child && status == 0, "peak memory");
    close(pipeEnds[0]);
    close(pipeEnds[1]);
    const double peak = static_cast<double>(grown) * 1024, size = static_cast<double>(document.text.size());
    Print("peak memory of a settings document of 100,000 items, MB / the document", peak / 1e6, size / 1e6, peak / size,
          {12, 12});
}

}  // namespace

void Documents() {
    const Document large(100'000);
    PeakMemory(large);
    const Document small(1'000), usual(10'000);
    Compare("8 settings document of 1,000 items / libxml2's tree and walk", {2.0, 1.0}, Times(Ours, small),
            Times(Libxml, small), 1'000, 1'000);
    Compare("8 settings document of 10,000 items / libxml2's tree and walk", {2.0, 1.0}, Times(Ours, usual),
            Times(Libxml, usual), 10'000, 10'000);
    Compare("8a settings document, an item of 100,000 / of 1,000", {2.5, 1.8}, Times(Ours, large), Times(Ours, small),
            100'000, 1'000);
}

}  // namespace bench
