#pragma once
// The exception a statement that was expected to work raises when it fails.

#include <stdexcept>
#include <string>

namespace rivo {

class SqlError : public std::runtime_error {
 public:
  explicit SqlError(const std::string& query)
      : std::runtime_error("SQL failed: Query was '" + query + "'"), _query(query) {}
  const std::string& query() const { return _query; }

 private:
  std::string _query;
};

}  // namespace rivo
