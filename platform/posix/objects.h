// Handles and the objects behind them.
#pragma once

#include "scheduler.h"

#include <memory>
#include <string>

namespace w32 {

// What a handle can stand for. Waitable objects answer Ready and Take, both with the world lock held.
class Object {
 public:
  virtual ~Object() = default;
  virtual bool Waitable() const { return false; }
  virtual bool Ready(const Thread& /*thread*/) { return false; }
  // Gives the object to the thread; returns WAIT_OBJECT_0 or WAIT_ABANDONED.
  virtual DWORD Take(Thread& /*thread*/) { return WAIT_OBJECT_0; }
  virtual Touched Touch() const { return {}; }
};

// Enters an object into the handle table. Handles count in Account::Handles.
HANDLE NewHandle(std::shared_ptr<Object> pObject);
std::shared_ptr<Object> FindObject(HANDLE hObject);

template <class T>
std::shared_ptr<T> FindObject(HANDLE hObject) {
  return std::dynamic_pointer_cast<T>(FindObject(hObject));
}

}  // namespace w32
