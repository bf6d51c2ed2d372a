// SPDX-License-Identifier: GPL-2.0-only
#include "ember.h"

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>

#include <hosted/engine/fault.h>
#include <hosted/engine/judge.h>
#include <hosted/engine/leftovers.h>
#include <platform/ember.h>

struct cdev_tevent {
	platform::ember_event event;
	bool written = false;
};

namespace platform
{
namespace
{

struct service {
	std::mutex lock;
	std::map<const cdev_tevent *, std::unique_ptr<cdev_tevent>> live;
	std::vector<ember_event> delivered;
	std::vector<std::string> calls;
	unsigned refusals = 0;

	cdev_tevent &checked(const cdev_tevent *event)
	{
		const auto found = live.find(event);
		if (found == live.end())
			hosted::judge_stop("ember", "use of an event that does not exist");
		return *found->second;
	}
};

service &ember()
{
	static service s;
	return s;
}

const hosted::leftover_source ember_leftovers([] {
	service &s = ember();
	const std::lock_guard guard(s.lock);
	std::vector<std::string> lines;
	for (const auto &[address, object] : s.live)
		lines.push_back("ember event " + std::to_string(object->event.number));
	return lines;
});

int add(cdev_tevent *event, std::string_view call, const char *key,
	std::variant<std::string, s64> value)
{
	hosted::might_sleep("cdev_tevent_add");
	service &s = ember();
	const std::lock_guard guard(s.lock);
	s.checked(event).event.items.emplace_back(key, std::move(value));
	s.calls.push_back(std::string(call) + ' ' + key);
	return 0;
}

} // namespace

std::vector<ember_event> take_ember_events()
{
	const std::lock_guard guard(ember().lock);
	return std::exchange(ember().delivered, {});
}

std::vector<std::string> take_ember_calls()
{
	const std::lock_guard guard(ember().lock);
	return std::exchange(ember().calls, {});
}

ember_refusal::ember_refusal()
{
	const std::lock_guard guard(ember().lock);
	++ember().refusals;
}

ember_refusal::~ember_refusal()
{
	const std::lock_guard guard(ember().lock);
	--ember().refusals;
}

} // namespace platform

struct cdev_tevent *cdev_tevent_alloc(int event)
{
	hosted::might_sleep("cdev_tevent_alloc");
	const bool fail = hosted::should_fail("cdev_tevent_alloc");
	platform::service &s = platform::ember();
	const std::lock_guard guard(s.lock);
	s.calls.push_back("alloc " + std::to_string(event));
	if (fail || s.refusals != 0)
		return nullptr;
	auto object = std::make_unique<cdev_tevent>();
	object->event.number = event;
	cdev_tevent *address = object.get();
	s.live.emplace(address, std::move(object));
	return address;
}

int cdev_tevent_add_str(struct cdev_tevent *event, const char *key, const char *value)
{
	return platform::add(event, "add_str", key, std::string(value));
}

int cdev_tevent_add_int(struct cdev_tevent *event, const char *key, s64 value)
{
	return platform::add(event, "add_int", key, value);
}

int cdev_tevent_write(struct cdev_tevent *event)
{
	hosted::might_sleep("cdev_tevent_write");
	platform::service &s = platform::ember();
	const std::lock_guard guard(s.lock);
	cdev_tevent &object = s.checked(event);
	if (std::exchange(object.written, true))
		hosted::judge_stop("ember", "an event is sent twice");
	s.calls.emplace_back("write");
	s.delivered.push_back(object.event);
	return 0;
}

void cdev_tevent_destroy(struct cdev_tevent *event)
{
	hosted::might_sleep("cdev_tevent_destroy");
	platform::service &s = platform::ember();
	const std::lock_guard guard(s.lock);
	s.checked(event);
	s.calls.emplace_back("destroy");
	s.live.erase(event);
}
