// Generated from gen/model by gen/generator. Do not edit.
// Text getters and setters of every enum and struct type.
#pragma once

#include "settings-service/notify.h"

#include <cstdint>
#include <string>

std::string getLevelIntrospection(const void* address, int index);
std::string setLevelIntrospection(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify, const char* text);
std::string getColourIntrospection(const void* address, int index);
std::string setColourIntrospection(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify, const char* text);
std::string getPointIntrospection(const void* address, int index);
std::string setPointIntrospection(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify, const char* text);
