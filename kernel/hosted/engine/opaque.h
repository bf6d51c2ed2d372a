// SPDX-License-Identifier: GPL-2.0-only
// The hosted kernel's objects in the storage of the interface's opaque structures.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

#include <hosted/engine/judge.h>

namespace hosted
{

// A member of an object in opaque storage that is set when the object is created; storage without
// an object holds something else.
template <std::uint32_t Value>
class magic_number
{
public:
	[[nodiscard]] bool intact() const
	{
		return value_ == Value;
	}

private:
	std::uint32_t value_ = Value;
};

template <class Object, class Storage>
constexpr void check_storage()
{
	static_assert(sizeof(Object) <= sizeof(Storage));
	static_assert(alignof(Object) <= alignof(Storage));
	static_assert(std::is_trivially_destructible_v<Object>,
		      "objects in opaque storage are never destroyed");
}

// The object in a storage. There may be none yet, which its magic number reveals.
template <class Object, class Storage>
Object &opaque_cast(Storage *storage)
{
	check_storage<Object, Storage>();
	return *reinterpret_cast<Object *>(storage->storage);
}

template <class Object, class Storage>
const Object &opaque_cast(const Storage *storage)
{
	check_storage<Object, Storage>();
	return *reinterpret_cast<const Object *>(storage->storage);
}

template <class Object>
void judge_initialised(const Object &object, const char *rule, const char *what)
{
	if (judging && !object.magic.intact()) [[unlikely]]
		judge_stop(rule, what);
}

// For plain values, for which zeroed storage is valid too.
template <class Value, class Storage>
Value load_opaque(const Storage *storage)
{
	static_assert(std::is_trivially_copyable_v<Value>);
	check_storage<Value, Storage>();
	Value value;
	std::memcpy(&value, storage->storage, sizeof(value));
	return value;
}

template <class Value, class Storage>
void store_opaque(Storage *storage, const Value &value)
{
	static_assert(std::is_trivially_copyable_v<Value>);
	check_storage<Value, Storage>();
	std::memcpy(storage->storage, &value, sizeof(value));
}

} // namespace hosted
