// SPDX-License-Identifier: GPL-2.0-only
// The tarnctl that was built, run as from a shell.
#pragma once

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <sys/wait.h>

#include "trace_testing.h"

namespace tarn
{

struct outcome {
	int status;
	std::string out;
	std::string err;
};

inline std::string tarnctl_path()
{
	return std::filesystem::read_symlink("/proc/self/exe").replace_filename("tarnctl").string();
}

// Redirections ("2>&-") may take away what would be kept.
inline outcome tarnctl(const std::string &arguments, const std::string &redirections = "",
		       const std::string &program = tarnctl_path())
{
	const trace::temp_file errors("");
	const std::string line =
		program + " " + arguments + " 2>" + errors.path() + " " + redirections;
	std::FILE *pipe = popen(line.c_str(), "r"); // NOLINT(cert-env33-c)
	outcome result{};
	std::array<char, 4096> buffer;

	while (const std::size_t n = std::fread(buffer.data(), 1, buffer.size(), pipe))
		result.out.append(buffer.data(), n);
	result.status = WEXITSTATUS(pclose(pipe));
	std::ifstream file(errors.path());
	result.err.assign(std::istreambuf_iterator<char>(file), {});
	return result;
}

} // namespace tarn
