// Where the time of a trace went: calls, failures and time by scope, and by the road to it.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "svinfo/TraceReader.h"

class CTraceSummary {
  public:
    struct CScope {
        std::string name;
        std::uint64_t calls = 0;
        std::uint64_t failures = 0;
        TraceTime total = 0;  // milliseconds inside, one call within another of the same scope counted once
        TraceTime self = 0;   // of these, not in a scope below
    };

    // The records of one file after the other.
    void Add(const CTraceRecord& record);
    // At the end of a file: scopes that are still open end with its last record.
    void EndFile();

    // By total time, the most first.
    std::vector<CScope> Scopes() const;
    std::uint64_t StillOpen() const noexcept { return m_stillOpen; }
    // A line for each road with its own time in microseconds: "outer;inner 1500", as flame graphs are made from.
    std::string Folded() const;

  private:
    struct CNode {  // of the tree of roads
        std::size_t parent;
        std::size_t scope;
        TraceTime self;
    };
    struct CFrame {
        std::size_t node;
        TraceTime entered;
        TraceTime below;  // in scopes that were entered from here
        bool counts;      // no call of the same scope is under way further up
    };
    using CStack = std::vector<CFrame>;

    std::size_t ScopeNamed(std::string_view name);
    std::size_t NodeBelow(std::size_t parent, std::size_t scope);
    void Leave(CStack& stack, TraceTime time);

    static constexpr std::size_t kRoot = SIZE_MAX;

    std::vector<CScope> m_scopes;
    std::unordered_map<std::string, std::size_t> m_byName;
    std::vector<CNode> m_nodes;
    std::unordered_map<std::uint64_t, std::size_t> m_byRoad;  // parent and scope
    std::unordered_map<DWORD, CStack> m_stacks;
    TraceTime m_now = 0;
    std::uint64_t m_stillOpen = 0;
};
