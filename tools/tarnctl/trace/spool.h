// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include <tarnctl/device/file_descriptor.h>
#include <tarnctl/trace/source.h>

namespace tarn::trace
{

// A trace that can be read more than once: a regular file as it is; "-" (standard input) and pipes
// are copied to a temporary file, in $TMPDIR or /tmp, which goes with the object.
class spooled_trace
{
public:
	// Throws trace_error if a pipe cannot be read or copied.
	explicit spooled_trace(const std::string &path);

	const trace_path &path() const
	{
		return path_;
	}

private:
	file_descriptor copy_;
	trace_path path_;
};

} // namespace tarn::trace
