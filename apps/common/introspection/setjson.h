// The struct setter: writes members of one element of a struct variable from
// the (member name, value) items of the settings reader (the walk of
// structwalk.h, whose values the value codec reads).
//
// The element is the one at base + offset + notify.index x element size.
// Each item names a member of the struct.  Its value may be the member
// object that the struct getter prints ({"value": ..., "type": ..., ...}, of
// which only "value" is read) or a bare value.  A member of struct type takes
// an object of its own members and is applied the same way, recursively; an
// array member takes an array of such values, element by element.  Values
// convert as the variable setters do: int with base detection (std::stoi
// with base 0, "0x1F" is 31), float with std::stof, bool only "true" or
// "false", enum by exact entry name; a string is cut to its capacity less one.
//
// Rules chosen here:
// - Members missing from the list are left unchanged.
// - An unknown member name, a value that does not convert, an object without
//   "value", or an array with more elements than the member holds is
//   reported in the result and skipped; every other member is still applied.
//   Each problem reads "<member path>: <reason>", the path naming nested
//   members and array elements as in "Outer.Inner[2].Field"; several
//   problems are joined by "; ".  The result is empty when all went well.
// - An element index beyond the variable's array length (or above 0 for a
//   variable that is not an array) writes nothing and returns
//   "Element <index> exceeds the array length <length>".
// - The variable's event (the given Notify) is posted once per call when any
//   stored byte changed; a call that changes nothing posts nothing.
#pragma once

#include "settings-service/json.h"
#include "settings-service/notify.h"

#include <cstdint>
#include <string>
#include <vector>

std::string setJson(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                    const std::vector<Json::Item>& members);
