#include "message/array_fields.h"

#include "message/fields.h"
#include "zorvandata/text.h"

namespace foundation::protobuf {
namespace {

using namespace array_field;  // NOLINT: the vocabulary of this file

void readBytes(const FieldReader& field, ItemFields& fields) {
  switch (field.number()) {
    case kKinds:
      fields.kinds = field.bytes();
      return;
    case kText:
      fields.text = field.bytes();
      return;
    case kClassName:
      fields.className = field.bytes();
      return;
    case kNames:
      zorvandata::checkUtf8(field.bytes());
      fields.names.emplace_back(field.bytes());
      return;
    default:
      return;
  }
}

void readItemField(const FieldReader& field, ItemFields& fields) {
  switch (field.number()) {
    case kItemType:
      if (field.isVarint()) fields.itemType = field.value();
      return;
    case kInts:
      return fields.ints.addVarints(field);
    case kReals:
      return fields.reals.addFixed64(field);
    case kTextLen:
      return fields.textLen.addVarints(field);
    case kTextIndex:
      return fields.textIndex.addVarints(field);
    case kRows:
      return fields.rows.addVarints(field);
    case kColStarts:
      return fields.colStarts.addVarints(field);
    case kRef:
      return fields.refs.addVarints(field);
    default:
      if (field.isBytes()) readBytes(field, fields);
  }
}

}  // namespace

void readField(const FieldReader& field, ArrayFields& fields) {
  switch (field.number()) {
    case kType:
      if (field.isVarint()) fields.type = field.value();
      return;
    case kDims:
      return fields.dims.addVarints(field);
    case kElements:
      if (field.isBytes()) fields.elements = field.bytes();
      return;
    default:
      return readItemField(field, fields.items());
  }
}

}  // namespace foundation::protobuf
