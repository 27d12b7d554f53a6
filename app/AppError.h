#pragma once
// A broken invariant of the application (a profile name in use, the last profile removed, a
// file operation on a profile folder that failed). The command line reports it in one line.

#include <stdexcept>
#include <string>

namespace rivo {

class AppError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Another program holds the data folder.
class DataFolderBusy : public AppError {
 public:
  using AppError::AppError;
};

}  // namespace rivo
