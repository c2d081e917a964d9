#include "host/var_table.h"

#include <algorithm>
#include <utility>

#include "host/utf8.h"

namespace mpbp::host {
namespace {

PP_Var PlainVar(PP_VarType type) {
  PP_Var var{};
  var.type = type;
  return var;
}

std::string Name(PP_Var var) {
  return "var " + std::to_string(var.value.as_id) + " of type " + std::to_string(var.type);
}

}  // namespace

PP_Var UndefinedVar() { return PlainVar(PP_VARTYPE_UNDEFINED); }

PP_Var VarTable::Add(PP_VarType type, std::variant<String, ObjectRef> content) {
  PP_Var var = PlainVar(type);
  var.value.as_id = next_id_++;
  entries_.emplace(var.value.as_id, Entry{1, std::move(content)});
  return var;
}

PP_Var VarTable::FromUtf8(std::string_view bytes) {
  if (!IsValidUtf8(bytes)) return PlainVar(PP_VARTYPE_NULL);
  const PP_Var var = Add(PP_VARTYPE_STRING, String{nullptr, static_cast<uint32_t>(bytes.size())});
  auto& string = std::get<String>(entries_.at(var.value.as_id).content);
  // Not a byte more than the text, so that a reader who counts on a terminator is caught.
  string.bytes = std::make_unique<char[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), string.bytes.get());
  return var;
}

PP_Var VarTable::FromValue(const Value& value) {
  struct Visitor {
    VarTable& table;
    PP_Var operator()(Undefined) { return UndefinedVar(); }
    PP_Var operator()(Null) { return PlainVar(PP_VARTYPE_NULL); }
    PP_Var operator()(bool b) {
      PP_Var var = PlainVar(PP_VARTYPE_BOOL);
      var.value.as_bool = b ? PP_TRUE : PP_FALSE;
      return var;
    }
    PP_Var operator()(int32_t i) {
      PP_Var var = PlainVar(PP_VARTYPE_INT32);
      var.value.as_int = i;
      return var;
    }
    PP_Var operator()(double d) {
      PP_Var var = PlainVar(PP_VARTYPE_DOUBLE);
      var.value.as_double = d;
      return var;
    }
    PP_Var operator()(const std::string& s) { return table.FromUtf8(s); }
    PP_Var operator()(const ObjectRef& ref) {
      if (!ref) return PlainVar(PP_VARTYPE_NULL);
      const auto found = table.objects_.find(ref.get().get());
      if (found == table.objects_.end()) {
        const PP_Var var = table.Add(PP_VARTYPE_OBJECT, ref);
        table.objects_.emplace(ref.get().get(), var.value.as_id);
        return var;
      }
      PP_Var var = PlainVar(PP_VARTYPE_OBJECT);
      var.value.as_id = found->second;
      ++table.entries_.at(found->second).references;
      return var;
    }
  };
  return std::visit(Visitor{*this}, value);
}

VarTable::Entry* VarTable::Find(PP_Var var, const std::string& where) {
  const auto found = entries_.find(var.value.as_id);
  if (found == entries_.end()) {
    misuse_.Add(where + ": " + Name(var) + " is not alive");
    return nullptr;
  }
  const bool is_object = std::holds_alternative<ObjectRef>(found->second.content);
  if (var.type != (is_object ? PP_VARTYPE_OBJECT : PP_VARTYPE_STRING)) {
    misuse_.Add(where + ": " + Name(var) + " is really of another type");
    return nullptr;
  }
  return &found->second;
}

Value VarTable::ToValue(PP_Var var, const std::string& where) {
  switch (var.type) {
    case PP_VARTYPE_UNDEFINED:
      return Undefined{};
    case PP_VARTYPE_NULL:
      return Null{};
    case PP_VARTYPE_BOOL:
      return var.value.as_bool != PP_FALSE;
    case PP_VARTYPE_INT32:
      return var.value.as_int;
    case PP_VARTYPE_DOUBLE:
      return var.value.as_double;
    default:
      break;
  }
  if (!IsCounted(var)) {
    misuse_.Add(where + ": no var has the type " + std::to_string(var.type));
    return Undefined{};
  }
  const Entry* entry = Find(var, where);
  if (entry == nullptr) return Undefined{};
  if (const auto* ref = std::get_if<ObjectRef>(&entry->content)) return *ref;
  return std::string(std::get<String>(entry->content).view());
}

void VarTable::AddRef(PP_Var var) {
  if (!IsCounted(var)) return;
  if (Entry* entry = Find(var, "AddRef")) ++entry->references;
}

void VarTable::Release(PP_Var var) {
  if (!IsCounted(var)) return;
  Entry* entry = Find(var, "Release");
  if (entry == nullptr || --entry->references > 0) return;
  // Out of the table first: dropping an object may run code that comes back here.
  const auto node = entries_.extract(var.value.as_id);
  if (const auto* ref = std::get_if<ObjectRef>(&node.mapped().content)) {
    objects_.erase(ref->get().get());
  }
}

const char* VarTable::ToUtf8(PP_Var var, uint32_t* length) {
  if (length != nullptr) *length = 0;
  if (var.type != PP_VARTYPE_STRING) return nullptr;
  const Entry* entry = Find(var, "VarToUtf8");
  if (entry == nullptr) return nullptr;
  const auto& string = std::get<String>(entry->content);
  if (length == nullptr) {
    misuse_.Add("VarToUtf8: no place for the length");
  } else {
    *length = string.length;
  }
  return string.bytes.get();
}

size_t VarTable::references() const {
  int64_t sum = 0;
  for (const auto& [id, entry] : entries_) sum += entry.references;
  return static_cast<size_t>(sum);
}

std::vector<std::string> VarTable::Describe() const {
  std::vector<std::string> texts;
  for (const auto& [id, entry] : entries_) {
    const auto* string = std::get_if<String>(&entry.content);
    texts.push_back((string != nullptr ? "\"" + std::string(string->view()) + "\"" : "object") +
                    " with " + std::to_string(entry.references) + " references");
  }
  return texts;
}

void VarTable::Clear() {
  objects_.clear();
  const auto dropped = std::exchange(entries_, {});
}

}  // namespace mpbp::host
