-- Pandoc filter for manual pages of documents that are written for the web: no tables, which a terminal of 80 columns
-- has no room for, no links, no fonts that only some formatters know.

local text = pandoc.text

-- A table becomes a list: the first cell (or the first two, where there are many) names the row, and what stands in the
-- others follows, behind the title of its column where there are many.
local function list_of(tbl)
  local plain = pandoc.utils.to_simple_table(tbl)
  local columns = #plain.headers
  local named_by = columns > 3 and 2 or 1
  local items = pandoc.List()
  local function inlines(cell)
    return pandoc.utils.blocks_to_inlines(cell)
  end
  local term, description
  for _, row in ipairs(plain.rows) do
    local name = pandoc.List()
    for column = 1, named_by do
      if #inlines(row[column]) > 0 then
        if #name > 0 then name:insert(pandoc.Space()) end
        name:extend(inlines(row[column]))
      end
    end
    local words = pandoc.List()
    for column = named_by + 1, columns do
      local cell = inlines(row[column])
      if #cell > 0 then
        if #words > 0 then words:extend({pandoc.Str(columns > 3 and ";" or ":"), pandoc.Space()}) end
        local title = inlines(plain.headers[column])
        if #title > 0 and columns > 3 then
          words:extend(title)
          words:extend({pandoc.Str(":"), pandoc.Space()})
        end
        words:extend(cell)
      end
    end
    if #name == 0 and description then  -- the row goes on with the one above
      description:extend({pandoc.Space()})
      description:extend(words)
    else
      term, description = name, words
      items:insert({term, description})
    end
  end
  return pandoc.DefinitionList(items:map(function(item)
    return {item[1], {{pandoc.Plain(item[2])}}}
  end))
end

return {
  {
    Table = list_of,
  },
  {
    Link = function(link) return link.content end,
    Code = function(code) return pandoc.Strong(pandoc.Str(code.text)) end,
    Header = function(header)
      if header.level == 1 then
        return pandoc.Header(1, pandoc.Str(text.upper(pandoc.utils.stringify(header))))
      elseif header.level > 2 then
        return pandoc.Header(2, header.content)
      end
    end,
  },
}
