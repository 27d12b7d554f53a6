#pragma once
// What ProfileManager needs of whoever holds the open collection, so that it can load a profile
// without knowing the application: AppDelegate implements it. Main loop only, as profile
// switches are.

#include <memory>
#include <string>

namespace rivo {

class Col;

class CollectionHost {
 public:
  virtual ~CollectionHost() = default;

  // The open collection, or null.
  virtual std::shared_ptr<Col> col() const = 0;
  // Takes over a collection just opened.
  virtual void setCol(std::unique_ptr<Col> col) = 0;
  // Closes and forgets the open collection, if any.
  virtual void unloadCollection() = 0;
  // Tells the user something (a damaged collection was set aside).
  virtual void showInfo(const std::string& text) = 0;
};

}  // namespace rivo
