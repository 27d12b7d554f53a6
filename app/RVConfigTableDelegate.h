#pragma once
// What fills a code-described options table: setupConfigTable gives the table its title,
// sections and buttons. The table owns its delegate.

namespace rivo {

class RVConfigTableController;

class RVConfigTableDelegate {
 public:
  virtual ~RVConfigTableDelegate() = default;
  virtual void setupConfigTable(RVConfigTableController& table) = 0;
};

}  // namespace rivo
