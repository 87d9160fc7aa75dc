// What a verb takes: declared by the verb, read by the command line's parser, which no verb needs to know.
#pragma once

#include <optional>
#include <string>
#include <vector>

// Whatever is declared must outlive the reading. Names in capitals are arguments by their place, those with dashes are
// options.
class CArguments {
  public:
    virtual void Required(const char* name, std::string& value) = 0;
    virtual void Required(const char* name, std::vector<std::string>& values) = 0;  // one or more
    virtual void Optional(const char* name, std::string& value) = 0;
    virtual void Optional(const char* name, std::optional<std::string>& value) = 0;  // tells '' from nothing
    virtual void Optional(const char* name, std::vector<std::string>& values) = 0;
    virtual void Flag(const char* name, bool& value) = 0;
    virtual void Seconds(const char* name, double& value) = 0;  // more than 0

  protected:
    ~CArguments() = default;
};
