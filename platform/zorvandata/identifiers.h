// Names of fields, classes and properties as values of their own types.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace foundation::zorvandata {

class ZorvanFieldIdentifier {
 public:
  ZorvanFieldIdentifier(std::string name) : name_(std::move(name)) {}  // NOLINT: made from text
  const std::string& getString() const { return name_; }

 private:
  std::string name_;
};

inline bool operator==(const ZorvanFieldIdentifier& a, const ZorvanFieldIdentifier& b) {
  return a.getString() == b.getString();
}

class ZorvanClassIdentifier {
 public:
  ZorvanClassIdentifier(std::string name) : name_(std::move(name)) {}  // NOLINT: made from text
  const std::string& getClassName() const { return name_; }

 private:
  std::string name_;
};

inline bool operator==(const ZorvanClassIdentifier& a, const ZorvanClassIdentifier& b) {
  return a.getClassName() == b.getClassName();
}

// A property of a class, made from one text: "class.property", or "property" alone, which then
// stands for that property of any class. The last dot divides.
class ZorvanPropertyIdentifier {
 public:
  ZorvanPropertyIdentifier(const std::string& text) {  // NOLINT: made from text
    const size_t dot = text.rfind('.');
    if (dot != std::string::npos) class_ = text.substr(0, dot);
    property_ = dot == std::string::npos ? text : text.substr(dot + 1);
  }
  const std::string& getClassName() const { return class_; }
  const std::string& getPropertyName() const { return property_; }

 private:
  std::string class_;
  std::string property_;
};

inline bool operator==(const ZorvanPropertyIdentifier& a, const ZorvanPropertyIdentifier& b) {
  return a.getClassName() == b.getClassName() && a.getPropertyName() == b.getPropertyName();
}

// Description of an engine class: its name and the properties known of it.
class ClassInfo {
 public:
  explicit ClassInfo(ZorvanClassIdentifier id,
                     std::vector<ZorvanPropertyIdentifier> properties = {})
      : id_(std::move(id)), properties_(std::move(properties)) {}
  const ZorvanClassIdentifier& getClassIdentifier() const { return id_; }
  const std::vector<ZorvanPropertyIdentifier>& getProperties() const { return properties_; }

 private:
  ZorvanClassIdentifier id_;
  std::vector<ZorvanPropertyIdentifier> properties_;
};

}  // namespace foundation::zorvandata
