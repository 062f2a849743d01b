// Appending to a repeated message field without losing the new element when
// memory runs out.
#ifndef LINKWARD_ADD_ELEMENT_H
#define LINKWARD_ADD_ELEMENT_H

#include <google/protobuf/repeated_ptr_field.h>

namespace linkward {

// The runtime's own add makes the element first and grows the field's array
// after; when that growth throws std::bad_alloc, the new element belongs to
// nobody and leaks. Growing first leaves nothing behind.
template <class Message>
Message* add_element(google::protobuf::RepeatedPtrField<Message>* field) {
  if (field->size() == field->Capacity()) field->Reserve(field->size() + 1);
  return field->Add();
}

}  // namespace linkward

#endif
