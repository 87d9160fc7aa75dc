// Where a home does not do what a case asks for: the table of docs/homes.md, read and held to.
//
// A row names a home, a case, and a part of what the failed check says: the row's reason in the case's own table, a
// name, an expression. While that case runs on that home, a failure that bears the text counts for nothing, and every
// other failure counts. A row without its failure fails the case: the difference is gone and the table has to say so.
#pragma once

#include <string>

// To be called once, when GoogleTest is initialised and before the tests run. An error, as text, for a table that
// cannot be read, a row without its four cells, or one that names a case its suite does not have; else empty.
std::string HoldTestsToTheGaps(const std::string& tableFile);
