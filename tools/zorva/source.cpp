// SPDX-License-Identifier: GPL-2.0
#include "source.h"
#include "parser.h"
#include "progress.h"
#include "snapshot.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace zorva
{
namespace
{

constexpr std::string_view ssh = "ssh:", shell = "cmd:";

/* Closes what it was given. */
class open_file {
public:
	explicit open_file(int fd) : fd_(fd)
	{
	}
	~open_file()
	{
		if (fd_ > STDERR_FILENO)
			close(fd_);
	}
	open_file(const open_file &) = delete;
	open_file &operator=(const open_file &) = delete;

	int fd() const
	{
		return fd_;
	}

private:
	const int fd_;
};

/* A file's pages, for as long as it lives. */
class mapped_file {
public:
	mapped_file(int fd, size_t size)
		: pages_(mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0)),
		  size_(size)
	{
		if (pages_ != MAP_FAILED)
			madvise(pages_, size_, MADV_SEQUENTIAL);
	}
	~mapped_file()
	{
		if (pages_ != MAP_FAILED)
			munmap(pages_, size_);
	}
	mapped_file(const mapped_file &) = delete;
	mapped_file &operator=(const mapped_file &) = delete;

	bool mapped() const
	{
		return pages_ != MAP_FAILED;
	}
	std::string_view text() const
	{
		return { static_cast<const char *>(pages_), size_ };
	}

private:
	void *const pages_;
	const size_t size_;
};

/*
 * All up to the end; false with errno. A report has no size of its own, and is
 * mostly short: memory that nothing is read into costs the board time.
 */
bool read_all(int fd, std::string &to)
{
	char piece[16 * 1024];

	to.clear();
	for (;;) {
		progress::wait_for(fd, to.size());

		const ssize_t got = read(fd, piece, sizeof(piece));

		if (got < 0 && errno == EINTR)
			continue;
		if (got <= 0)
			return got == 0;
		to.append(piece, static_cast<size_t>(got));
		progress::at(to.size(), 0);
	}
}

std::string problem(std::string_view what, int error)
{
	return fmt::format("{}: {}", what, strerror(error));
}

/* The entries whose names are numbers. */
std::vector<std::string> numbers_in(const std::string &directory)
{
	std::vector<std::string> found;
	DIR *const open = opendir(directory.c_str());

	while (const dirent *one = open ? readdir(open) : nullptr)
		if (strspn(one->d_name, "0123456789") == strlen(one->d_name))
			found.push_back(directory + "/" + one->d_name);
	if (open)
		closedir(open);
	return found;
}

/* A task may have ended meanwhile: then there is nothing to be said of it. */
void read_proc_file(reading &into, const std::string &path)
{
	std::string text;

	if (read_file(path, text))
		parse_file(into, path, text);
}

/* Each report that is read costs the switch something. */
bool is_wanted(report_kind kind, const wants &what)
{
	switch (kind) {
	case report_kind::mem_detail:
		return what.details;
	case report_kind::mutex_detail:
	case report_kind::sem_detail:
		return what.histories;
	case report_kind::thread:
	case report_kind::timer:
	case report_kind::hrt:
		return what.others;
	default:
		return true;
	}
}

void read_directory(reading &into, const std::string &directory, bool live,
		    const wants &what)
{
	bool found = false;

	for (size_t i = 0; i < report_kinds; ++i) {
		const auto kind = static_cast<report_kind>(i);
		const std::string path = directory + "/" + report_name(kind);
		std::string text;

		if (live && !is_wanted(kind, what))
			continue;
		if (read_file(path, text)) {
			parse_file(into, path, text);
			found = true;
		} else if (errno != ENOENT) {
			notes(into).add(severity::error, { UINT32_MAX, 0 },
					problem(path, errno));
		}
	}
	if (!found) {
		into.failure =
			fmt::format("{}: no report in it{}", directory,
				    live ? " (is the module loaded?)" : "");
		return;
	}
	if (!live)
		return;
	if (!what.others) {
		read_proc_file(into, "/proc/uptime");
		return;
	}
	for (const char *path : { "/proc/uptime", "/proc/meminfo",
				  "/proc/modules", "/proc/version" })
		read_proc_file(into, path);
	if (!what.tasks)
		return;
	const std::vector<std::string> tasks = tasks_of("/proc");

	for (size_t i = 0; i < tasks.size(); ++i) {
		const std::string &task = tasks[i];

		progress::at(i, tasks.size());
		read_proc_file(into, task + "/stat");
		read_proc_file(into, task + "/stack");
	}
}

void read_open_file(reading &into, std::string_view name, int fd)
{
	struct stat about;
	std::string text;

	if (fstat(fd, &about) == 0 && S_ISREG(about.st_mode) &&
	    about.st_size > 0 && lseek(fd, 0, SEEK_CUR) == 0) {
		const mapped_file whole(fd, static_cast<size_t>(about.st_size));

		if (whole.mapped()) {
			parse_text(into, name, whole.text());
			return;
		}
	}
	if (read_all(fd, text))
		parse_text(into, name, text);
	else
		into.failure = problem(name, errno);
}

void read_path(reading &into, const std::string &path, const wants &what)
{
	const open_file file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
	struct stat about;

	if (file.fd() < 0 || fstat(file.fd(), &about) < 0) {
		into.failure = problem(path, errno);
		return;
	}
	if (S_ISDIR(about.st_mode))
		read_directory(into, path, false, what);
	else if (const auto kind = report_of(path)) {
		std::string text;

		if (read_all(file.fd(), text))
			parse_file(into, path, text);
		else
			into.failure = problem(path, errno);
	} else
		read_open_file(into, path, file.fd());
}

/*
 * What a command prints; its own complaints go to our standard error. Its
 * input is short enough for the pipe, and who does not want it need not read
 * it.
 */
void run_command(command_output &from, std::vector<std::string> words,
		 std::string_view input)
{
	std::vector<char *> arguments;
	posix_spawn_file_actions_t actions;
	int out[2], in[2];
	pid_t child;
	int error, status = 0;

	for (std::string &word : words)
		arguments.push_back(word.data());
	arguments.push_back(nullptr);
	if (pipe2(out, O_CLOEXEC) < 0 || pipe2(in, O_CLOEXEC) < 0) {
		from.failure = problem(words[0], errno);
		return;
	}
	posix_spawn_file_actions_init(&actions);
	posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
	posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
	error = posix_spawnp(&child, arguments[0], &actions, nullptr,
			     arguments.data(), environ);
	posix_spawn_file_actions_destroy(&actions);
	close(in[0]);
	close(out[1]);
	if (error) {
		close(in[1]);
		close(out[0]);
		from.failure = problem(words[0], error);
		return;
	}
	while (!input.empty()) {
		const ssize_t put = write(in[1], input.data(), input.size());

		if (put < 0 && errno == EINTR)
			continue;
		if (put <= 0)
			break;
		input.remove_prefix(put);
	}
	close(in[1]);

	const bool whole = read_all(out[0], from.text);

	error = errno;
	close(out[0]);
	while (waitpid(child, &status, 0) < 0 && errno == EINTR)
		;
	from.ended_badly = status != 0;
	if (!whole)
		from.failure = problem(words[0], error);
	else if (from.text.empty())
		from.failure = "it printed nothing";
}

} // namespace

std::vector<std::string> tasks_of(const std::string &proc)
{
	std::vector<std::string> found;

	for (const std::string &process : numbers_in(proc))
		for (std::string &task : numbers_in(process + "/task"))
			found.push_back(std::move(task));
	return found;
}

bool is_command(std::string_view source)
{
	return source.starts_with(ssh) || source.starts_with(shell);
}

command_output run_source(std::string_view source)
{
	const progress shown(source);
	command_output from;

	if (source.starts_with(shell)) {
		run_command(from,
			    { "/bin/sh", "-c",
			      std::string(source.substr(shell.size())) },
			    "");
		return from;
	}

	const std::string host(source.substr(ssh.size()));

	/* ssh would take it for an option. */
	if (host.empty() || host[0] == '-')
		from.failure = "no host's name";
	else
		run_command(from, { "ssh", "--", host, "sh", "-s" },
			    snapshot_script());
	return from;
}

void remove_half(const std::string &path)
{
	struct stat about;

	if (lstat(path.c_str(), &about) == 0 && S_ISREG(about.st_mode))
		unlink(path.c_str());
}

bool read_file(const std::string &path, std::string &to)
{
	const open_file file(open(path.c_str(), O_RDONLY | O_CLOEXEC));

	return file.fd() >= 0 && read_all(file.fd(), to);
}

void read_source(reading &into, std::string_view source, const wants &what)
{
	if (source.empty() || source == "live") {
		read_directory(into, live_directory, true, what);
	} else if (source == "-") {
		read_open_file(into, "standard input", STDIN_FILENO);
	} else if (is_command(source)) {
		const command_output from = run_source(source);

		if (!from.failure.empty()) {
			into.failure =
				fmt::format("{}: {}", source, from.failure);
			return;
		}
		parse_text(into, source, from.text);
		if (from.ended_badly)
			notes(into)
				.add(severity::warning, { 0, 0 },
				     "the command has failed; what it printed before is all there is");
	} else {
		read_path(into, std::string(source), what);
	}
}

} // namespace zorva
