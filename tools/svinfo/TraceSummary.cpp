#include "svinfo/TraceSummary.h"

#include <algorithm>

std::size_t CTraceSummary::ScopeNamed(std::string_view name) {
    const auto [at, isNew] = m_byName.try_emplace(std::string(name), m_scopes.size());
    if (isNew) m_scopes.push_back({at->first});
    return at->second;
}

std::size_t CTraceSummary::NodeBelow(std::size_t parent, std::size_t scope) {
    const std::uint64_t road = (static_cast<std::uint64_t>(parent + 1) << 32) + scope;
    const auto [at, isNew] = m_byRoad.try_emplace(road, m_nodes.size());
    if (isNew) m_nodes.push_back({parent, scope, 0});
    return at->second;
}

void CTraceSummary::Leave(CStack& stack, TraceTime time) {
    const CFrame frame = stack.back();
    stack.pop_back();
    CNode& node = m_nodes[frame.node];
    const TraceTime inside = std::max<TraceTime>(time - frame.entered, 0);
    const TraceTime self = std::max<TraceTime>(inside - frame.below, 0);
    m_scopes[node.scope].self += self;
    if (frame.counts) m_scopes[node.scope].total += inside;
    node.self += self;
    if (!stack.empty()) stack.back().below += inside;
}

void CTraceSummary::Add(const CTraceRecord& record) {
    if (record.tag == 'N') return EndFile();
    if (record.time != kNoTime) m_now = record.time;
    CStack& stack = m_stacks[record.thread];
    switch (record.tag) {
        case '>': {
            const std::size_t scope = ScopeNamed(record.text);
            const bool counts = std::none_of(stack.begin(), stack.end(),
                                             [&](const CFrame& frame) { return m_nodes[frame.node].scope == scope; });
            const std::size_t node = NodeBelow(stack.empty() ? kRoot : stack.back().node, scope);
            stack.push_back({node, m_now, 0, counts});
            ++m_scopes[scope].calls;
            break;
        }
        case '<':
            if (!stack.empty()) Leave(stack, m_now);
            break;
        case 'E':
            ++m_scopes[stack.empty() ? ScopeNamed("(no scope)") : m_nodes[stack.back().node].scope].failures;
            break;
        default:
            break;
    }
}

void CTraceSummary::EndFile() {
    for (auto& [thread, stack] : m_stacks) {
        m_stillOpen += stack.size();
        while (!stack.empty()) Leave(stack, m_now);
    }
    m_stacks.clear();
}

std::vector<CTraceSummary::CScope> CTraceSummary::Scopes() const {
    std::vector<CScope> scopes = m_scopes;
    std::sort(scopes.begin(), scopes.end(), [](const CScope& a, const CScope& b) {
        if (a.total != b.total) return a.total > b.total;
        return a.calls != b.calls ? a.calls > b.calls : a.name < b.name;
    });
    return scopes;
}

std::string CTraceSummary::Folded() const {
    std::string text;
    for (const CNode& leaf : m_nodes) {
        if (leaf.self == 0) continue;
        std::string road;
        for (const CNode* node = &leaf;; node = &m_nodes[node->parent]) {
            std::string name = m_scopes[node->scope].name;
            std::replace(name.begin(), name.end(), ';', ':');  // which separates the parts
            road = road.empty() ? name : name + ";" + road;
            if (node->parent == kRoot) break;
        }
        text += road + " " + std::to_string(leaf.self * 1000) + "\n";
    }
    return text;
}
